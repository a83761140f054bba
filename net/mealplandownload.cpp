#include "net/mealplandownload.h"

#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "db/savedmealdb.h"
#include "net/netlog.h"
#include "net/publish.h"

#include <QRegularExpression>
#include <QXmlStreamReader>

namespace {

const QString kUnknownError = QStringLiteral("Unknown error. Please make sure you're connected to the "
                                             "internet, and your username/password are set correctly.");

int mealOf(const QString &name)
{
    if (name.startsWith(QLatin1Char('B')))
        return BREAKFAST;
    if (name.startsWith(QLatin1Char('L')))
        return LUNCH;
    if (name.startsWith(QLatin1Char('D')))
        return DINNER;
    return SNACK_3;
}

} // namespace

MealPlanDownloader *MealPlanDownloader::instance()
{
    static MealPlanDownloader downloader;
    return &downloader;
}

MealPlanDownloader::MealPlanDownloader()
{
    _http = std::make_unique<LmHttp>(
        false, QUrl(BrandEngine::instance().getString(QStringLiteral("mealplan_auth_url"))), 80);
    connect(_http.get(), &LmHttp::done, this, &MealPlanDownloader::onDone);
    connect(_http.get(), &LmHttp::dataReadProgress, this, &MealPlanDownloader::dataReadProgress);
}

bool MealPlanDownloader::download(int user_id)
{
    LM_ASSERT(!_running);
    // The last planned day of the coming week; the keys looked up are padded with spaces, as they
    // always have been.
    const QDate end = QDate::currentDate().addDays(7);
    const MealPlanDB plans;
    QDate found;
    for (QDate day = end; day >= QDate::currentDate(); day = day.addDays(-1)) {
        const QString key = QString::asprintf("%4d%2d%2d", day.year(), day.month(), day.day());
        if (!plans.getDay(user_id, key).foods.isEmpty()) {
            found = day;
            break;
        }
    }
    if (found == end)
        return false;
    _first = found.isValid() ? found.addDays(1) : QDate::currentDate();
    _last = end;
    _userId = user_id;
    _errorText = kUnknownError;

    QString url = BrandEngine::instance().getString(QStringLiteral("mealplan_auth_url"));
    const QString error = expandBrandUrl(url, user_id);
    if (!error.isEmpty()) {
        _errorText = error;
        return false;
    }
    url += QStringLiteral("begindate=") + _first.toString(Qt::ISODate) + QStringLiteral("&enddate=") +
           _last.toString(Qt::ISODate);
    qCDebug(lcNet, "fetching pages: %s", qUtf8Printable(url));
    _running = true;
    _http->get(QUrl(url));
    return true;
}

bool MealPlanDownloader::parseReply(const QByteArray &reply, int user_id, QList<FoodDiaryItem> *foods,
                                    QString *error)
{
    QXmlStreamReader xml(reply);
    bool failed = false;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QXmlStreamAttributes a = xml.attributes();
        if (xml.name() == QLatin1String("mealplan") && a.hasAttribute(QLatin1String("errno")) &&
            a.hasAttribute(QLatin1String("errstr"))) {
            *error = a.value(QLatin1String("errstr")).toString() + QStringLiteral(" (") +
                     a.value(QLatin1String("errno")).toString() + QLatin1Char(')');
            failed = true;
            foods->clear();
        } else if (xml.name() == QLatin1String("food") && !failed) {
            FoodDiaryItem item(true);
            item.food_id = -1;
            item.user_id = user_id;
            item.food_name = a.value(QLatin1String("description")).toString();
            item.serv_name = a.value(QLatin1String("serving")).toString();
            item.size = a.value(QLatin1String("qty")).toFloat();
            item.meal = mealOf(a.value(QLatin1String("meal")).toString());
            const QString date = a.value(QLatin1String("date")).toString();
            static const QRegularExpression digits(QStringLiteral("^[0-9]{8}$"));
            if (digits.match(date).hasMatch())
                item.date = date;
            const QPair<const char *, int> values[] = {{"calories", ENERGY},
                                                       {"carbohydrate", CARB},
                                                       {"fat", FAT},
                                                       {"fiber", FIBER},
                                                       {"protein", PROTEIN}};
            for (const auto &[name, type] : values) {
                bool ok = false;
                const float v = a.value(QLatin1String(name)).toFloat(&ok);
                if (ok)
                    item.setNutrient(type, v);
            }
            foods->append(item);
        }
    }
    if (xml.hasError() && !failed) {
        foods->clear();
        *error = kUnknownError;
        return false;
    }
    return !failed;
}

void MealPlanDownloader::onDone(bool error)
{
    if (!_running)
        return;
    _running = false;
    if (error) {
        emit finished(true, _http->errorString());
        return;
    }
    QList<FoodDiaryItem> foods;
    if (!parseReply(_http->readAll(), _userId, &foods, &_errorText)) {
        emit finished(true, _errorText);
        return;
    }
    const MealPlanDB plans;
    LmSqlDb::begin();
    for (FoodDiaryItem &food : foods)
        plans.addFoodEntry(food);
    LmSqlDb::commit();
    emit finished(false, QString());
}
