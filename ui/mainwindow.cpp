#include "ui/mainwindow.h"

#include "brand/brandengine.h"

#include <QLabel>
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
    statusBar()->showMessage(tr("Ready"));
    resize(1024, 720);
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
