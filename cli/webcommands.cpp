// Web: publishing the diary, the meal plan, usage metrics.

#include "cli/commands.h"
#include "cli/session.h"

#include "brand/brandengine.h"
#include "db/savedmealdb.h"
#include "model/dateconversion.h"
#include "net/mealplandownload.h"
#include "net/metrics.h"
#include "net/publish.h"
#include "staticdb/staticdbupdater.h"

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

int mealplan(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("mealplan"));
    const Session session(context);
    const int userId = session.userId();
    MealPlanDownloader *downloader = MealPlanDownloader::instance();
    if (!downloader->download(userId)) {
        if (downloader->errorText().isEmpty()) {
            printLine(QStringLiteral("The coming week is planned already."));
            return Success;
        }
        failure(downloader->errorText());
    }
    QEventLoop loop;
    bool failed = false;
    QString text;
    QObject::connect(downloader, &MealPlanDownloader::finished, &loop,
                     [&](bool error, const QString &message) {
                         failed = error;
                         text = message;
                         loop.quit();
                     });
    loop.exec();
    if (failed)
        failure(text);
    // What is planned now, day by day.
    const MealPlanDB plans;
    for (QDate day = downloader->firstDay(); day <= downloader->lastDay(); day = day.addDays(1)) {
        for (const FoodDiaryItem &food : plans.getDay(userId, DateConversion::fromQDate(day)).foods) {
            printLine(QStringLiteral("%1\t%2\t%3 x %4\t%5")
                          .arg(day.toString(Qt::ISODate), mealName(food.meal, 1),
                               QString::number(double(food.size)), escapeField(food.serv_name),
                               escapeField(food.food_name)));
        }
    }
    return Success;
}

int metrics(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("metrics"));
    const Session session(context);
    const int userId = session.userId();
    Metrics sender(userId);
    QObject::connect(&sender, &Metrics::uploadOk, &sender, [userId] { Metrics::resetUserMetrics(userId); });
    QEventLoop loop;
    bool failed = false;
    QObject::connect(&sender, &Metrics::done, &loop, [&](bool error) {
        failed = error;
        loop.quit();
    });
    sender.start();
    loop.exec();
    if (failed)
        failure(sender.errorText());
    printLine(QStringLiteral("Usage metrics sent."));
    return Success;
}

int updateDb(Context &context, const QStringList &args)
{
    const Arguments a(args, {}, {QStringLiteral("--check")});
    a.expectPositionals(0, 0, QStringLiteral("update-db [--check]"));
    const Session session(context);
    const BrandEngine &brand = BrandEngine::instance();
    if (!brand.idExists(QStringLiteral("update_rss_url")) ||
        !brand.idExists(QStringLiteral("update_enabled")) || !brand.getBool(QStringLiteral("update_enabled")))
        failure(QStringLiteral("Sorry, this product does not support database updates."));

    StaticDbUpdater updater;
    QEventLoop loop;
    QObject::connect(&updater, &StaticDbUpdater::checkFinished, &loop, &QEventLoop::quit);
    QObject::connect(&updater, &StaticDbUpdater::downloadFinished, &loop, &QEventLoop::quit);
    if (!updater.check())
        failure(QStringLiteral("the update feed address could not be made"));
    loop.exec();
    if (updater.state() == StaticDbUpdater::Failed)
        failure(updater.errorText());
    if (updater.result() == StaticDbUpdater::UpToDate) {
        printLine(QStringLiteral("Your databases are up to date."));
        return Success;
    }
    if (updater.result() == StaticDbUpdater::NoInformation) {
        printLine(updater.hasMessage()
                      ? updater.message()
                      : QStringLiteral("Sorry, there are no database updates for your product"));
        return Success;
    }
    printLine(QStringLiteral("An update is available: ") + updater.updateUrl());
    if (a.has(QStringLiteral("--check")))
        return Success;
    if (!StaticDbUpdater::permissionTest())
        failure(
            QStringLiteral("You do not have the required permissions to update the static databases. Please "
                           "contact your network administrator."));
    if (!updater.download())
        failure(updater.errorText());
    loop.exec();
    if (updater.state() != StaticDbUpdater::Finished)
        failure(updater.errorText());
    printLine(QStringLiteral("Your databases have been updated successfully."));
    return Success;
}

} // namespace Cli
