#include "net/mealplandownload.h"

#include "app/webserver.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "db/lmsqldb.h"
#include "db/savedmealdb.h"
#include "net/netlog.h"
#include "net/publish.h"

#include <QRegularExpression>
#include <QXmlStreamReader>

#include <cfloat>
#include <cmath>

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

// The value of the first of the attributes that is there.
QStringView attribute(const QXmlStreamAttributes &attributes, std::initializer_list<const char *> names)
{
    for (const char *name : names) {
        if (attributes.hasAttribute(QLatin1String(name)))
            return attributes.value(QLatin1String(name));
    }
    return QStringView();
}

// A number that fits the single precision the diary keeps; false when there is none.
bool finiteNumber(QStringView text, float *value)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || !std::isfinite(number) || std::fabs(number) > double(FLT_MAX))
        return false;
    *value = float(number);
    return true;
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
        false, QUrl(WebServer::address(QStringLiteral("mealplan_auth_url"))), 80);
    _http->setRequestDeadline(kDeadline);
    connect(_http.get(), &LmHttp::done, this, &MealPlanDownloader::onDone);
    connect(_http.get(), &LmHttp::dataReadProgress, this, &MealPlanDownloader::dataReadProgress);
}

bool MealPlanDownloader::download(int user_id)
{
    LM_ASSERT(!_running);
    _errorText.clear(); // "planned already" has none
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

    QString url = WebServer::address(QStringLiteral("mealplan_auth_url"));
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

void MealPlanDownloader::abort()
{
    _http->abort();
}

bool MealPlanDownloader::parseReply(const QByteArray &reply, int user_id, const QDate &first,
                                    const QDate &last, QList<FoodDiaryItem> *foods, QString *error)
{
    const QString firstDay = first.toString(QStringLiteral("yyyyMMdd"));
    const QString lastDay = last.toString(QStringLiteral("yyyyMMdd"));
    QXmlStreamReader xml(reply);
    bool failed = false;
    QString refusal; // why the first bad food was refused
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
        } else if (xml.name() == QLatin1String("food") && !failed && refusal.isEmpty()) {
            FoodDiaryItem item(true);
            item.food_id = -1;
            item.user_id = user_id;
            item.food_name = attribute(a, {"food_name", "description"}).toString();
            item.serv_name = attribute(a, {"serv_name", "serving"}).toString();
            item.meal = mealOf(a.value(QLatin1String("meal")).toString());
            const QString date = a.value(QLatin1String("date")).toString();
            static const QRegularExpression digits(QStringLiteral("^[0-9]{8}$"));
            if (digits.match(date).hasMatch())
                item.date = date;
            const auto refuse = [&](const QString &why) {
                refusal = QStringLiteral("The meal plan was not stored: food %1 (\"%2\") %3.")
                              .arg(foods->size() + 1)
                              .arg(item.food_name, why);
            };
            if (!finiteNumber(a.value(QLatin1String("qty")), &item.size))
                refuse(QStringLiteral("has no quantity"));
            else if (item.size < 0)
                refuse(QStringLiteral("has a negative quantity"));
            else if (item.date.isEmpty() || item.date < firstDay || item.date > lastDay)
                refuse(QStringLiteral("is not for a day from %1 to %2")
                           .arg(first.toString(Qt::ISODate), last.toString(Qt::ISODate)));
            const QPair<const char *, int> values[] = {{"calories", ENERGY},
                                                       {"carbohydrate", CARB},
                                                       {"fat", FAT},
                                                       {"fiber", FIBER},
                                                       {"protein", PROTEIN}};
            for (const auto &[name, type] : values) {
                if (!refusal.isEmpty() || !a.hasAttribute(QLatin1String(name)))
                    continue; // an absent value stays unknown
                float v = 0;
                if (finiteNumber(a.value(QLatin1String(name)), &v))
                    item.setNutrient(type, v);
                else
                    refuse(QStringLiteral("has a %1 value that is not a finite number")
                               .arg(QLatin1String(name)));
            }
            foods->append(item);
        }
    }
    if (!failed && !xml.hasError() && refusal.isEmpty())
        return true;
    if (!failed)
        *error = xml.hasError() ? kUnknownError : refusal;
    foods->clear(); // nothing of a refused reply is stored
    return false;
}

void MealPlanDownloader::onDone(bool error)
{
    if (!_running)
        return;
    _running = false;
    if (error) {
        _errorText = _http->errorString();
        emit finished(true, _errorText);
        return;
    }
    // A proxy's page about a server it cannot reach is no meal plan, however well-formed.
    const QHttpsResponseHeader &response = _http->lastResponse();
    if (response.statusCode() != 200) {
        _errorText = QStringLiteral("The request failed with status %1 %2.")
                         .arg(response.statusCode())
                         .arg(response.reasonPhrase());
        emit finished(true, _errorText);
        return;
    }
    QList<FoodDiaryItem> foods;
    if (!parseReply(_http->readAll(), _userId, _first, _last, &foods, &_errorText)) {
        emit finished(true, _errorText);
        return;
    }
    const MealPlanDB plans;
    LmWriteTransaction write;
    bool stored = write.isOpen();
    for (FoodDiaryItem &food : foods)
        stored = stored && plans.addFoodEntry(food);
    if (!write.commit(stored)) {
        _errorText = QStringLiteral("The meal plan could not be stored.");
        emit finished(true, _errorText);
        return;
    }
    _errorText.clear();
    emit finished(false, QString());
}
