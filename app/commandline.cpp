#include "app/commandline.h"

#include "common/lmassert.h"

CommandLine parseCommandLine(const QStringList &arguments)
{
    CommandLine result;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (arg == QLatin1String("-updatedb")) {
            result.updateDb = true;
        } else if (arg == QLatin1String("-deregistercond")) {
            result.deregisterConduit = true;
        } else if (arg == QLatin1String("-resourcedir")) {
            if (i + 1 >= arguments.size())
                Lm::fatal(QStringLiteral("-resourcedir must be followed by a directory path"));
            // The resource folder is set once; a second one is the same error as setting it twice.
            const bool resourcePath = !result.resourceDir.isNull();
            LM_ASSERT(!resourcePath);
            result.resourceDir = arguments.at(++i);
        } else {
            Lm::fatal(QStringLiteral("Unknown argument: %1").arg(arg));
        }
    }
    if (result.updateDb && result.deregisterConduit)
        Lm::fatal(QStringLiteral("You may only specify one of -updatedb and -deregistercond"));
    return result;
}
