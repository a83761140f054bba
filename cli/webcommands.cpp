// Web: publishing the diary.

#include "cli/commands.h"
#include "cli/session.h"

#include "net/publish.h"

#include <QEventLoop>
#include <QTimer>

namespace Cli {

int publish(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("publish"));
    const Session session(context);
    const int userId = session.userId();

    static const char *const steps[] = {"Connecting", "Sending", "Reading", "Disconnecting", "Done"};
    LmPublish publisher(userId);
    QString result;
    QEventLoop loop;
    QObject::connect(&publisher, &LmPublish::stepChanged, &loop, [](int step, bool ok, const QString &text) {
        printLine(QStringLiteral("%1\t%2%3")
                      .arg(QLatin1String(steps[step]), ok ? QStringLiteral("ok") : QStringLiteral("failed"),
                           text.isEmpty() ? QString() : QLatin1Char('\t') + text));
    });
    QObject::connect(&publisher, &LmPublish::finished, &loop, [&](const QString &text) {
        result = text;
        loop.quit();
    });
    if (!publisher.publish())
        failure(QStringLiteral("nothing was published"));
    loop.exec();
    printLine(result);
    return result == QLatin1String("Completed successfully") ? Success : Failed;
}

} // namespace Cli
