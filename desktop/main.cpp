// tarnwell: the desktop program.

#include "app/commandline.h"
#include "app/lmsettings.h"
#include "app/messagehandler.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"
#include "ui/mainwindow.h"
#include "ui/messageboxes.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QLatin1String(Lm::kProductName));
    QApplication::setApplicationVersion(QLatin1String(Lm::kVersion));
    QApplication::setOrganizationDomain(QLatin1String(Lm::kVendorDomain));
    QApplication::setDesktopFileName(QStringLiteral("tarnwell"));
    Lm::installMessageHandler(Lm::MessageHandlerMode::Desktop);
    Ui::installMessageBoxes();

    BrandEngine &brand = BrandEngine::instance();
    const CommandLine commandLine = parseCommandLine(QApplication::arguments().mid(1));
    if (!commandLine.resourceDir.isEmpty())
        LmSettings::setResourcePath(commandLine.resourceDir);

    const QString brandFile = LmSettings::resourcePath() + QStringLiteral("brand.dat");
    if (!brand.load(brandFile))
        Lm::fatal(QStringLiteral("Cannot find %1").arg(brandFile));

    int status = 0;
    {
        MainWindow window;
        window.show();
        QObject::connect(&app, &QApplication::lastWindowClosed, &app, &QApplication::quit);
        status = QApplication::exec();
    }
    BrandEngine::release();
    return status;
}
