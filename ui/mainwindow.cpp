#include "ui/mainwindow.h"

#include "brand/brandengine.h"

#include "common/lmconstants.h"

#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    const BrandEngine &brand = BrandEngine::instance();
    setWindowTitle(brand.getString(QStringLiteral("app_name")));
    setWindowIcon(brand.getPixmap(QStringLiteral("graphics.image.profile.logo")));

    auto *placeholder = new QLabel(this);
    placeholder->setPixmap(brand.getPixmap(QStringLiteral("splash")));
    placeholder->setAlignment(Qt::AlignCenter);
    setCentralWidget(placeholder);
    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About %1").arg(windowTitle()), this,
                    [this] { QMessageBox::about(this, tr("About %1").arg(windowTitle()), aboutText()); });
    statusBar()->showMessage(tr("Ready"));
    resize(1024, 720);
}

QString MainWindow::aboutText() const
{
    QString credits = QString::fromLatin1(Lm::kReferenceDataCredits).toHtmlEscaped();
    credits.replace(QLatin1Char('\n'), QLatin1String("<br><br>"));
    return QStringLiteral("<p><b>%1 %2</b></p><p>%3</p>")
        .arg(windowTitle().toHtmlEscaped(), QLatin1String(Lm::kVersion), credits);
}

void MainWindow::processMessage(const QString &message)
{
    Q_UNUSED(message);
    // Another copy was started: bring this one forward instead.
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    show();
    raise();
    activateWindow();
}
