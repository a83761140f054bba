// tarnwell: the desktop program. Start-up and shut-down run in a fixed order; every early end
// has its own exit status (0 another copy took over, a maintenance mode ran, or no profile was
// made; 1 the database could not be started).

#include "app/commandline.h"
#include "app/lmsettings.h"
#include "app/messagehandler.h"
#include "app/notificationdispatcher.h"
#include "app/singlecopy.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"
#include "db/lmsqldb.h"
#include "db/userdb.h"
#include "staticdb/staticdbupdater.h"
#include "ui/deferredicons.h"
#include "ui/mainwindow.h"
#include "ui/messageboxes.h"
#include "ui/singleapplication.h"
#include "ui/updatedialog.h"

#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <memory>
#include <string>

namespace {

bool brandFlag(const char *id)
{
    const BrandEngine &brand = BrandEngine::instance();
    return brand.idExists(QLatin1String(id)) && brand.getBool(QLatin1String(id));
}

// A borderless picture while the database starts.
std::unique_ptr<QDialog> showSplash()
{
    auto splash = std::make_unique<QDialog>(nullptr, Qt::SplashScreen | Qt::FramelessWindowHint);
    auto *picture = new QLabel(splash.get());
    picture->setPixmap(BrandEngine::instance().getPixmap(QStringLiteral("splash")));
    auto *layout = new QVBoxLayout(splash.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(picture);
    splash->setCursor(Qt::WaitCursor);
    splash->show();
    QApplication::processEvents();
    return splash;
}

// Data of the first version lies in its own folder as dBASE files.
bool versionOneDataFound()
{
    const QString folder = LmSettings::versionOneDataPath();
    return !folder.isEmpty() &&
           !QDir(folder).entryList({QStringLiteral("*.dbf"), QStringLiteral("*.DBF")}, QDir::Files).isEmpty();
}

int shutDown(int status)
{
    LmSqlDb::shutDown();
    BrandEngine::release();
    return status;
}

} // namespace

int main(int argc, char *argv[])
{
    SingleApplication app(QLatin1String(SingleCopy::kIdentifier), argc, argv);
    QApplication::setApplicationName(QLatin1String(Lm::kProductName));
    QApplication::setApplicationVersion(QLatin1String(Lm::kVersion));
    QApplication::setOrganizationDomain(QLatin1String(Lm::kVendorDomain));
    QApplication::setDesktopFileName(QStringLiteral("tarnwell"));
    if (app.sendMessage(QStringLiteral("Wake up!"), 5000))
        return 0;
    QApplication::setStyle(new DeferredIconStyle);
    app.initialize();
    Lm::installMessageHandler(Lm::MessageHandlerMode::Desktop);
    Ui::installMessageBoxes();

    BrandEngine &brand = BrandEngine::instance();
    const CommandLine commandLine = parseCommandLine(QApplication::arguments().mid(1));
    if (!commandLine.resourceDir.isEmpty())
        LmSettings::setResourcePath(commandLine.resourceDir);
    const QString brandFile = LmSettings::resourcePath() + QStringLiteral("brand.dat");
    if (!brand.load(brandFile))
        Lm::fatal(QStringLiteral("Cannot find %1").arg(brandFile));

    // An install of the reference database cut short is put right before anything opens it.
    StaticDbUpdater::recoverInterruptedInstall();

    if (commandLine.updateDb) {
        if (!brand.idExists(QStringLiteral("update_rss_url"))) {
            QMessageBox::information(
                nullptr, QStringLiteral("Database Update"),
                QStringLiteral("Sorry, this product does not support database updates."));
            return shutDown(0);
        }
        std::string error;
        LmSqlDb::startUp(error, true);
        Ui::runDatabaseUpdate(nullptr, true);
        return shutDown(0);
    }
    if (commandLine.deregisterConduit) {
        if (!brand.getBool(QStringLiteral("conduit_enabled")))
            Lm::fatal(
                QStringLiteral("-deregistercond specified, but this version of the software has no conduit"));
        return shutDown(0); // no handheld conduit on this platform: nothing is registered
    }

    QApplication::setOverrideCursor(Qt::WaitCursor);
    std::unique_ptr<QDialog> splash = showSplash();
    std::string error;
    if (!LmSqlDb::startUp(error, true)) {
        LmSqlDb::shutDown();
        splash.reset();
        QApplication::restoreOverrideCursor();
        QMessageBox::critical(
            nullptr, QStringLiteral("Database initialization error"),
            QStringLiteral("An error occurred while initializing databases:\n\n%1\n\nThe program "
                           "will now exit")
                .arg(QString::fromStdString(error)));
        return shutDown(1);
    }
    if (UserDB::numUsers() == 0 && versionOneDataFound()) {
        const auto answer = QMessageBox::question(
            nullptr, QStringLiteral("Upgrade from old database"),
            QStringLiteral(
                "Do you want to import your old data (version 1.x)?\n\nChoosing YES will import your old "
                "tarnwell data\nChoosing  NO will start a new database with a fresh profile\n\n"),
            QMessageBox::Yes | QMessageBox::No);
        if (answer == QMessageBox::Yes) {
            qDebug("Old database exists");
            QMessageBox::information(
                nullptr, QStringLiteral("Upgrade from old database"),
                QStringLiteral("This version cannot read data of version 1.x. A new database "
                               "with a fresh profile is started instead."));
        }
    }

    auto window = std::make_unique<MainWindow>();
    QObject::connect(&app, &SingleApplication::messageReceived, window.get(), &MainWindow::processMessage);
    splash.reset();
    QApplication::restoreOverrideCursor();

    const QList<int> users = UserDB::getUserIds();
    if (!window->openProfile(users.isEmpty() ? -1 : users.constFirst())) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("User creation canceled."),
                        QStringLiteral("You must finish the profile before you can use\nthis program."));
        box.addButton(QStringLiteral("Quit"), QMessageBox::AcceptRole);
        box.exec();
        window.reset();
        return shutDown(0);
    }
    window->show();
    // Counted once the window is up: the count is a write that waits for the disk.
    if (brandFlag("metrics_enabled"))
        QTimer::singleShot(0, window.get(), [user = window->currentUser()] { UserDB::countStart(user); });
    if (brand.getBool(QStringLiteral("conduit_enabled")))
        qDebug("No handheld conduit to register on this platform");
    QObject::connect(&app, &QApplication::lastWindowClosed, &app, &QApplication::quit);
    // For measuring start-up: end as soon as the window is up.
    if (qEnvironmentVariableIsSet("TARNWELL_EXIT_WHEN_SHOWN"))
        QTimer::singleShot(0, &app, &QApplication::quit);
    NotificationDispatcher::send(QStringLiteral("app_about_to_start"));
    const int status = QApplication::exec();
    window.reset();
    return shutDown(status);
}
