// tarnwell-cli: the diary from the command line. Same libraries, data files and settings as the
// desktop program.

#include "app/lmsettings.h"
#include "app/messagehandler.h"
#include "brand/brandengine.h"
#include "cli/commands.h"
#include "common/lmconstants.h"

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

void writeError(const QString &message)
{
    std::fprintf(stderr, "tarnwell-cli: %s\n", qUtf8Printable(message));
    std::fflush(stderr);
}

QString helpText()
{
    QString text = QStringLiteral(
        "usage: tarnwell-cli [--resourcedir DIR] [--profile ID|NAME] [--json] COMMAND [ARGUMENTS]\n"
        "       tarnwell-cli --help | --version\n"
        "\n"
        "Options:\n"
        "  --resourcedir DIR  resource folder (brand.dat, userdata.db, content/static.db);\n"
        "                     default: the folder of the executable\n"
        "  --profile ID|NAME  profile to act on; default: the first profile\n"
        "  --json             print data as one JSON document\n"
        "\n"
        "Dates are YYYY-MM-DD, today or yesterday. Meals are breakfast, snack1, lunch, snack2,\n"
        "dinner, snack3 or 1 to 6. Exit status: 0 success, 1 the operation failed, 2 usage error\n"
        "or invalid input (nothing changed), 70 fatal error.\n");
    const char *group = nullptr;
    for (const Cli::Command &command : Cli::commands()) {
        if (!group || qstrcmp(group, command.group) != 0) {
            group = command.group;
            text += QLatin1Char('\n') + QLatin1String(group) + QLatin1String(":\n");
        }
        text += QLatin1String("  ") + QLatin1String(command.name);
        if (*command.synopsis)
            text += QLatin1Char(' ') + QLatin1String(command.synopsis);
        text += QLatin1Char('\n');
    }
    text +=
        QLatin1String("\nReference data:\n") + QLatin1String(Lm::kReferenceDataCredits) + QLatin1Char('\n');
    return text;
}

int run(const QStringList &arguments)
{
    Cli::Context context;
    qsizetype i = 1;
    for (; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            std::fputs(qUtf8Printable(helpText()), stdout);
            return Cli::Success;
        }
        if (arg == QLatin1String("--version")) {
            Cli::printLine(QStringLiteral("tarnwell-cli %1").arg(QLatin1String(Lm::kVersion)));
            return Cli::Success;
        }
        if (arg == QLatin1String("--json")) {
            context.options.json = true;
        } else if (arg == QLatin1String("--resourcedir") || arg == QLatin1String("--profile")) {
            if (i + 1 >= arguments.size())
                Cli::usageError(QStringLiteral("option %1 needs a value").arg(arg));
            (arg == QLatin1String("--profile") ? context.options.profile : context.options.resourceDir) =
                arguments.at(++i);
        } else if (arg.startsWith(QLatin1Char('-'))) {
            Cli::usageError(QStringLiteral("unknown option %1 (see --help)").arg(arg));
        } else {
            break;
        }
    }
    if (i >= arguments.size())
        Cli::usageError(QStringLiteral("no command given (see --help)"));

    const QString name = arguments.at(i);
    const Cli::Command *command = Cli::findCommand(name);
    if (!command)
        Cli::usageError(QStringLiteral("unknown command '%1' (see --help)").arg(name));

    if (!context.options.resourceDir.isEmpty()) {
        if (!QDir(context.options.resourceDir).exists())
            Cli::usageError(
                QStringLiteral("resource folder %1 does not exist").arg(context.options.resourceDir));
        LmSettings::setResourcePath(context.options.resourceDir);
    }
    return command->run(context, arguments.mid(i + 1));
}

} // namespace

int main(int argc, char *argv[])
{
    // Printed pages need fonts, and so a Gui application; on no display, as the tool runs
    // anywhere. The other commands start faster without one.
    const bool pages =
        std::any_of(argv + 1, argv + argc, [](const char *a) { return std::strcmp(a, "--pdf") == 0; });
    if (pages && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    std::unique_ptr<QCoreApplication> app = pages ? std::make_unique<QGuiApplication>(argc, argv)
                                                  : std::make_unique<QCoreApplication>(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarnwell-cli"));
    QCoreApplication::setApplicationVersion(QLatin1String(Lm::kVersion));
    Lm::installMessageHandler(Lm::MessageHandlerMode::CommandLine);

    int status = Cli::Success;
    try {
        status = run(QCoreApplication::arguments());
    } catch (const Cli::Error &error) {
        writeError(error.message());
        status = error.status();
    }
    std::fflush(stdout);
    BrandEngine::release();
    return status;
}
