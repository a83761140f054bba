#include "ui/mainwindow.h"

#include "brand/brandengine.h"

#include "common/lmconstants.h"
#include "db/userdb.h"
#include "ui/newprofilewizard.h"

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

bool MainWindow::openProfile(int user_id)
{
    if (user_id < 0) {
        NewProfileWizard wizard(this);
        qDebug("no profile yet: running the new-profile wizard");
        if (wizard.exec() != QDialog::Accepted || wizard.createdUserId() < 0)
            return false;
        user_id = wizard.createdUserId();
    }
    _userId = user_id;
    for (const UserProfile &user : UserDB::getUsers()) {
        if (user.user_id == user_id)
            statusBar()->showMessage(tr("Profile: %1").arg(user.name));
    }
    return true;
}

void MainWindow::processMessage(const QString &message)
{
    qDebug("%s received", qUtf8Printable(message));
    // Another copy was started: bring this one forward instead.
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    show();
    raise();
    activateWindow();
}
