#include "ui/backgroundservices.h"

#include "app/notificationdispatcher.h"
#include "brand/brandengine.h"
#include "common/lmconstants.h"
#include "net/metrics.h"
#include "staticdb/staticdbupdater.h"
#include "ui/updatedialog.h"

#include <QMessageBox>
#include <QTimer>
#include <QWidget>

namespace {

bool brandFlag(const QString &id)
{
    const BrandEngine &brand = BrandEngine::instance();
    return brand.idExists(id) && brand.getBool(id);
}

} // namespace

BackgroundServices::BackgroundServices(QWidget *window)
    : QObject(window)
    , _window(window)
{
    connect(NotificationDispatcher::instance(), &NotificationDispatcher::notified, this,
            [this](const QString &name) {
                if (name == QLatin1String("app_about_to_start"))
                    start();
            });
}

BackgroundServices::~BackgroundServices() = default;

void BackgroundServices::setUser(int user_id)
{
    _userId = user_id;
    if (_metrics)
        _metrics->setUserId(user_id);
}

void BackgroundServices::start()
{
    if (brandFlag(QStringLiteral("metrics_enabled")) && !_metrics) {
        _metrics = new Metrics(_userId, this);
        // The marks go back to "in step" only once the server has the figures, and only for the
        // profile they were sent for.
        connect(_metrics, &Metrics::uploadOk, this, [this] { Metrics::resetUserMetrics(_metrics->sentUserId()); });
        // A window already closed means the program is on its way out: nothing is started then.
        QTimer::singleShot(15, _metrics, [this] {
            if (_window && _window->isVisible())
                _metrics->start();
        });
    }
    if (brandFlag(BRAND_BOOL_UPDATE_ENABLED) && BrandEngine::instance().idExists(BRAND_STR_UPDATE_RSS_URL) &&
        !_updater) {
        _updater = new StaticDbUpdater(this);
        connect(_updater, &StaticDbUpdater::checkFinished, this, &BackgroundServices::updateCheckFinished);
        // Once the first day is on screen and the user has started to work, and again now and
        // then for a window left open for weeks.
        QTimer::singleShot(kUpdateCheckDelayMs, _updater, [this] { _updater->checkIfDue(); });
        auto *again = new QTimer(this);
        connect(again, &QTimer::timeout, _updater, [this] {
            if (_updater->state() != StaticDbUpdater::Checking && _updater->state() != StaticDbUpdater::Downloading)
                _updater->checkIfDue();
        });
        again->start(kUpdateRecheckMs);
    }
}

void BackgroundServices::updateCheckFinished(bool error)
{
    if (error || _updater->result() != StaticDbUpdater::UpdateAvailable || !_window)
        return;
    // Asked only now that there is something to install; the update itself runs as the menu
    // command does.
    const auto answer = QMessageBox::question(
        _window, QStringLiteral("Database Updates"),
        QStringLiteral("A newer food and exercise database is available. Download and install it now?"));
    if (answer == QMessageBox::Yes)
        Ui::runDatabaseUpdate(_window, true);
}
