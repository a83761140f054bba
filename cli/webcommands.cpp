// Web: publishing the diary, the meal plan, usage metrics, reference database updates. Every
// request can be interrupted with Ctrl+C (SIGINT) or SIGTERM: the request is aborted the normal
// way, so nothing it would have changed is changed, and the tool ends with status 1.

#include "cli/commands.h"
#include "cli/session.h"

#include "app/webserver.h"
#include "brand/brandengine.h"
#include "db/savedmealdb.h"
#include "model/dateconversion.h"
#include "net/mealplandownload.h"
#include "net/metrics.h"
#include "net/publish.h"
#include "staticdb/staticdbupdater.h"

#include <QEventLoop>
#include <QSocketNotifier>

#include <functional>
#include <memory>

#ifdef Q_OS_UNIX
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace Cli {
namespace {

#ifdef Q_OS_UNIX
int g_signalPipe[2] = {-1, -1};

extern "C" void writeSignalByte(int)
{
    // All a signal handler may safely do: the event loop reads the byte.
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_signalPipe[1], &byte, 1);
}
#endif

// Runs the event loop for one request until finish() is called. A SIGINT or SIGTERM meanwhile
// calls abort() (and ends any connection set-up under way); a second one ends the tool the
// ordinary way.
class RequestWait
{
public:
    explicit RequestWait(std::function<void()> abort)
        : _abort(std::move(abort))
    {
#ifdef Q_OS_UNIX
        if (::pipe(g_signalPipe) != 0)
            return;
        for (const int fd : g_signalPipe) {
            ::fcntl(fd, F_SETFD, FD_CLOEXEC);
            ::fcntl(fd, F_SETFL, O_NONBLOCK);
        }
        _notifier = std::make_unique<QSocketNotifier>(g_signalPipe[0], QSocketNotifier::Read);
        QObject::connect(_notifier.get(), &QSocketNotifier::activated, _notifier.get(), [this] {
            char bytes[16];
            while (::read(g_signalPipe[0], bytes, sizeof bytes) > 0) {
            }
            interrupt();
        });
        struct sigaction action = {};
        action.sa_handler = writeSignalByte;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESETHAND | SA_RESTART;
        ::sigaction(SIGINT, &action, &_previousInt);
        ::sigaction(SIGTERM, &action, &_previousTerm);
#endif
    }

    ~RequestWait()
    {
#ifdef Q_OS_UNIX
        if (!_notifier)
            return;
        ::sigaction(SIGINT, &_previousInt, nullptr);
        ::sigaction(SIGTERM, &_previousTerm, nullptr);
        _notifier.reset();
        ::close(g_signalPipe[0]);
        ::close(g_signalPipe[1]);
        g_signalPipe[0] = g_signalPipe[1] = -1;
#endif
    }

    RequestWait(const RequestWait &) = delete;
    RequestWait &operator=(const RequestWait &) = delete;

    // The request has ended; called from its finishing signal.
    void finish()
    {
        _finished = true;
        if (_loop)
            _loop->quit();
    }

    // Until finish() or an interruption; false when interrupted.
    bool wait()
    {
        QEventLoop loop;
        _loop = &loop;
        while (!_finished && !_interrupted)
            loop.exec();
        _loop = nullptr;
        if (_interrupted && !_finished)
            _abort(); // the request may have been queued only after the signal
        return !_interrupted;
    }

private:
    void interrupt()
    {
        _interrupted = true;
        // A connection being made (TLS, a tunnel, a proxy script) waits in a loop of its own.
        LmHttp::abortSetups();
        _abort();
        if (_loop)
            _loop->quit();
    }

    std::function<void()> _abort;
    bool _finished = false;
    bool _interrupted = false;
    QEventLoop *_loop = nullptr;
    std::unique_ptr<QSocketNotifier> _notifier;
#ifdef Q_OS_UNIX
    struct sigaction _previousInt = {};
    struct sigaction _previousTerm = {};
#endif
};

[[noreturn]] void interrupted()
{
    failure(QStringLiteral("interrupted"));
}

} // namespace

int publish(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("publish"));
    const Session session(context);
    const int userId = session.userId();

    static const char *const steps[] = {"Connecting", "Sending", "Reading", "Disconnecting", "Done"};
    LmPublish publisher(userId);
    QString result;
    RequestWait request([&publisher] { publisher.cancel(); });
    QObject::connect(&publisher, &LmPublish::stepChanged, &publisher,
                     [](int step, bool ok, const QString &text) {
                         printLine(QStringLiteral("%1\t%2%3")
                                       .arg(QLatin1String(steps[step]),
                                            ok ? QStringLiteral("ok") : QStringLiteral("failed"),
                                            text.isEmpty() ? QString() : QLatin1Char('\t') + text));
                     });
    QObject::connect(&publisher, &LmPublish::statusTextChanged, &publisher, &printLine);
    QObject::connect(&publisher, &LmPublish::finished, &publisher, [&](const QString &text) {
        result = text;
        request.finish();
    });
    if (!publisher.publish())
        failure(QStringLiteral("nothing was published"));
    const bool uninterrupted = request.wait();
    if (!result.isEmpty())
        printLine(result);
    const bool published = result == QLatin1String("Completed successfully");
    if (!uninterrupted && !published)
        interrupted();
    return published ? Success : Failed;
}

int mealplan(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("mealplan"));
    const Session session(context);
    const int userId = session.userId();
    MealPlanDownloader *downloader = MealPlanDownloader::instance();
    RequestWait request([downloader] { downloader->abort(); });
    bool failed = false;
    QString text;
    // The downloader outlives this command: the connection goes with it.
    const std::unique_ptr<QObject> receiver = std::make_unique<QObject>();
    QObject::connect(downloader, &MealPlanDownloader::finished, receiver.get(),
                     [&](bool error, const QString &message) {
                         failed = error;
                         text = message;
                         request.finish();
                     });
    if (!downloader->download(userId)) {
        if (downloader->errorText().isEmpty()) {
            printLine(QStringLiteral("The coming week is planned already."));
            return Success;
        }
        failure(downloader->errorText());
    }
    if (!request.wait() && failed)
        interrupted();
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
    Metrics sender(session.userId());
    QObject::connect(&sender, &Metrics::uploadOk, &sender,
                     [&sender] { Metrics::resetUserMetrics(sender.sentUserId()); });
    RequestWait request([&sender] { sender.abort(); });
    bool failed = true;
    QObject::connect(&sender, &Metrics::done, &sender, [&](bool error) {
        failed = error;
        request.finish();
    });
    // The desktop program tries again later; here the reason is the answer.
    if (!sender.send())
        failure(sender.errorText());
    if (!request.wait() && failed)
        interrupted();
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
    {
        // An abort while the feed is read is told by no signal: the wait ends on the interruption.
        RequestWait check([&updater] { updater.abort(); });
        const QMetaObject::Connection connection = QObject::connect(&updater, &StaticDbUpdater::checkFinished,
                                                                    &updater, [&check] { check.finish(); });
        if (!updater.check())
            failure(QStringLiteral("the update feed address could not be made"));
        const bool uninterrupted = check.wait();
        QObject::disconnect(connection);
        if (!uninterrupted)
            interrupted();
    }
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
    // An interruption during the installation stops the copy, and the old file comes back.
    RequestWait download([&updater] { updater.abort(); });
    QObject::connect(&updater, &StaticDbUpdater::downloadFinished, &updater,
                     [&download] { download.finish(); });
    if (!updater.download())
        failure(updater.errorText());
    if (!download.wait() && updater.state() != StaticDbUpdater::Finished)
        interrupted();
    if (updater.state() != StaticDbUpdater::Finished)
        failure(updater.errorText());
    printLine(QStringLiteral("Your databases have been updated successfully."));
    return Success;
}

int config(Context &context, const QStringList &args)
{
    const Arguments a(args, {}, {QStringLiteral("--unset")});
    const QString usage = QStringLiteral("config server [URL | --unset]");
    a.expectPositionals(1, 2, usage);
    if (a.positionals().constFirst() != QLatin1String("server") ||
        (a.has(QStringLiteral("--unset")) && a.positionals().size() > 1))
        usageError(QStringLiteral("usage: ") + usage);
    const Session session(context);
    if (a.has(QStringLiteral("--unset"))) {
        WebServer::unset();
        printLine(QStringLiteral("No server set: the brand's web addresses are used."));
        return Success;
    }
    if (a.positionals().size() == 2) {
        QString error;
        if (!WebServer::setBase(a.positionals().at(1), &error))
            usageError(error);
    }
    const QString server = WebServer::base();
    printLine(server.isEmpty() ? QStringLiteral("No server set: the brand's web addresses are used.")
                               : server);
    return Success;
}

} // namespace Cli
