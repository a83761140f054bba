#include "net/publish.h"

#include "app/lmsettings.h"
#include "app/webserver.h"
#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"
#include "common/lmmessage.h"
#include "db/diarydb.h"
#include "db/lmsqldb.h"
#include "db/synctriggers.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "net/netlog.h"

#include <QDate>
#include <QSqlQuery>
#include <QUrl>
#include <QXmlStreamReader>

namespace {

QString webAddress()
{
    return WebServer::address(QStringLiteral("web_address"));
}

} // namespace

QString expandBrandUrl(QString &url, int user_id)
{
    BrandUrlValues values;
    if (user_id >= 0) {
        const UserSettings settings = UserDB::getSettings(user_id);
        values.userName = settings.web_username;
        values.password = settings.web_password;
    }
    values.contentDir = LmSettings::contentPath();
    return BrandEngine::instance().expandUrlVariables(url, values);
}

// --- XmlWriter ---

XmlWriter::XmlWriter(QString *out)
    : _out(out)
{
}

XmlWriter::~XmlWriter()
{
    while (!_open.isEmpty())
        endElement();
}

QString XmlWriter::escape(const QString &value)
{
    QString escaped;
    appendEscaped(&escaped, value);
    return escaped;
}

void XmlWriter::appendEscaped(QString *out, const QString &value)
{
    // Most values hold nothing to escape: copy runs between the characters that need it.
    const QChar *begin = value.constData();
    const QChar *run = begin;
    const QChar *end = begin + value.size();
    for (const QChar *c = begin; c != end; ++c) {
        const char16_t u = c->unicode();
        if (u != '"' && u != '&' && u != '<' && u != '>')
            continue;
        out->append(run, c - run);
        out->append(u == '"'   ? QLatin1String("&quot;")
                    : u == '&' ? QLatin1String("&amp;")
                    : u == '<' ? QLatin1String("&lt;")
                               : QLatin1String("&gt;"));
        run = c + 1;
    }
    out->append(run, end - run);
}

void XmlWriter::indent(qsizetype level)
{
    for (qsizetype i = 0; i < level; ++i)
        _out->append(QLatin1String("  "));
}

void XmlWriter::closeStartTag()
{
    if (_startTagOpen) {
        _out->append(QLatin1String(">\n"));
        _startTagOpen = false;
    }
}

void XmlWriter::startElement(const QString &name)
{
    closeStartTag();
    indent(_open.size());
    _out->append(QLatin1Char('<'));
    _out->append(name);
    _out->append(QLatin1Char(' '));
    _open.append(name);
    _startTagOpen = true;
}

void XmlWriter::attribute(const QString &name, const QString &value)
{
    LM_ASSERT(_startTagOpen);
    _out->append(name);
    _out->append(QLatin1String("=\""));
    appendEscaped(_out, value);
    _out->append(QLatin1String("\" "));
}

void XmlWriter::attribute(const QString &name, float value)
{
    attribute(name, QString::number(double(value), 'g', 6));
}

void XmlWriter::attribute(const QString &name, int value)
{
    attribute(name, QString::number(value));
}

void XmlWriter::endElement()
{
    LM_ASSERT(!_open.isEmpty());
    const QString name = _open.takeLast();
    if (_startTagOpen) {
        _out->append(QLatin1String("/>\n"));
        _startTagOpen = false;
        return;
    }
    indent(_open.size());
    _out->append(QLatin1String("</"));
    _out->append(name);
    _out->append(QLatin1String(">\n"));
}

// --- the reply ---

bool PublishResponse::parse(const QByteArray &reply)
{
    QXmlStreamReader xml(reply);
    while (!xml.atEnd()) {
        if (xml.readNext() == QXmlStreamReader::StartElement && xml.name() == QLatin1String("response")) {
            const QXmlStreamAttributes attributes = xml.attributes();
            errnum = attributes.value(QLatin1String("errno")).toInt();
            errstr = attributes.value(QLatin1String("errstr")).toString();
            show = attributes.value(QLatin1String("show")) == QLatin1String("yes");
        }
    }
    return !xml.hasError();
}

// --- publishing ---

LmPublish::LmPublish(int user_id, QObject *parent)
    : QObject(parent)
    , _userId(user_id)
    , _http(std::make_unique<LmHttp>(
          false, QUrl(WebServer::address(QStringLiteral("publish_auth_url"))), 80))
{
    _http->setRequestDeadline(kDeadline);
    connect(_http.get(), &LmHttp::stateChanged, this, &LmPublish::onStateChanged);
    connect(_http.get(), &LmHttp::statusTextChanged, this, &LmPublish::statusTextChanged);
    connect(_http.get(), &LmHttp::done, this, &LmPublish::onDone);
    connect(_http.get(), &LmHttp::proxyFound, this, [this](const QString &proxy) {
        emit stepChanged(Connecting, true,
                         proxy == QLatin1String("DIRECT")
                             ? QStringLiteral("Connect to Internet (Using DIRECT connection)")
                             : QStringLiteral("Connect to Internet (Using Proxy ") + proxy +
                                   QLatin1Char(')'));
    });
}

LmPublish::~LmPublish() = default;

bool LmPublish::publish()
{
    if (_url.isEmpty()) {
        _url = WebServer::address(QStringLiteral("publish_auth_url"));
        const QString error = expandBrandUrl(_url, _userId);
        if (!error.isEmpty()) {
            _url.clear();
            Lm::showMessage(Lm::MessageKind::Information, QStringLiteral("Publish Diary"), error);
            return false;
        }
    }
    const QString document = buildDocument();
    qCDebug(lcNet, "publishing %d items of %lld days", _itemCount, qlonglong(_publishedDays.size()));
    _running = true;
    _http->post(QUrl(_url), QString::fromLatin1(encodeBody(document)));
    return true;
}

void LmPublish::cancel()
{
    _http->abort();
}

QByteArray LmPublish::encodeBody(const QString &document)
{
    return "xml=" + QUrl::toPercentEncoding(document);
}

QString LmPublish::buildDocument()
{
    _itemCount = 0;
    _publishedDays.clear();
    QString document = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n");
    XmlWriter xml(&document);
    xml.startElement(QStringLiteral("diaryupdate"));
    xml.attribute(QStringLiteral("protocol"), QStringLiteral("1.1"));
    xml.attribute(QStringLiteral("platform"), QLatin1String(Lm::kDocumentPlatform));
    xml.attribute(QStringLiteral("os"), QLatin1String(Lm::kDocumentOs));
    xml.attribute(QStringLiteral("locate"), QStringLiteral("US"));

    xml.startElement(QStringLiteral("diary"));
    QStringList days = DiaryDB().getUnpublishedDates(_userId).values();
    std::sort(days.begin(), days.end());
    for (const QString &day : days) {
        if (!writeDay(xml, day))
            break; // the day did not fit: no later day is written
    }
    xml.endElement();

    xml.startElement(QStringLiteral("checkins"));
    LmSqlQueryPtr changed = LmSqlDb::instance()->prepare(
        QStringLiteral("SELECT c.date, c.weight, c.chest, c.hip, c.thigh, c.waist, c.note FROM user_checkins "
                       "c, user_checkins_sync s "
                       "WHERE c.user_id = ? AND s.user_id = c.user_id AND s.date = c.date AND s.device = 0 "
                       "AND s.state <> 0 ORDER BY "
                       "c.date"));
    if (execBound(changed, {_userId})) {
        while (changed->next()) {
            xml.startElement(QStringLiteral("checkin"));
            xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(changed->value(0).toString()));
            const char *names[] = {"weight", "chest", "hips", "thigh", "waist"};
            for (int i = 0; i < 5; ++i) {
                const QVariant v = changed->value(i + 1);
                if (!v.isNull() && v.toDouble() >= 0)
                    xml.attribute(QLatin1String(names[i]), v.toFloat());
            }
            const QString note = changed->value(6).toString();
            if (!note.isEmpty() && note != UserDB::kNoNote)
                xml.attribute(QStringLiteral("note"), note);
            xml.endElement();
        }
    }
    LmSqlQueryPtr deleted = LmSqlDb::instance()->prepare(
        QStringLiteral("SELECT date FROM user_checkins_sync WHERE state = ? AND user_id = ? AND device = 0"));
    if (execBound(deleted, {2, _userId})) {
        while (deleted->next()) {
            xml.startElement(QStringLiteral("checkin"));
            xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(deleted->value(0).toString()));
            xml.endElement();
        }
    }
    xml.endElement();

    xml.startElement(QStringLiteral("waters"));
    // The days are the profile's, and so must be the rows: a household shares the table.
    LmSqlQueryPtr waters = LmSqlDb::instance()->prepare(QStringLiteral(
        "SELECT date, cups FROM water_diary WHERE date IN (SELECT date FROM water_diary_sync WHERE "
        "user_id = ? and device = ? AND state <> ?) AND user_id = ?"));
    if (execBound(waters, {_userId, 0, 0, _userId})) {
        while (waters->next()) {
            const QString date = waters->value(0).toString();
            const int cups = waters->value(1).toInt();
            LM_ASSERT(date.size() == 8 && cups >= 0);
            xml.startElement(QStringLiteral("water"));
            xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(date));
            xml.attribute(QStringLiteral("cups"), cups);
            xml.endElement();
        }
    }
    xml.endElement();
    xml.endElement();
    return document;
}

bool LmPublish::writeDay(XmlWriter &xml, const QString &day)
{
    DiaryDay diary = DiaryDB().getDay(_userId, day);
    diary.foods.removeIf([](const FoodDiaryItem &f) { return f.status == STATUS_DELETED; });
    diary.exercises.removeIf([](const ExerciseDiaryItem &e) { return e.status == STATUS_DELETED; });
    const int items = int(diary.foods.size() + diary.exercises.size());
    if (_itemCount + items >= kMaxItems + 1)
        return false;
    _itemCount += items;
    _publishedDays.append(day);

    xml.startElement(QStringLiteral("diaryday"));
    xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(day));
    struct Group
    {
        char letter;
        const char *word;
    };
    const Group groups[] = {{'B', "Breakfast"}, {'L', "Lunch"}, {'D', "Dinner"}, {'S', "Snack"}};
    const auto groupOf = [](int meal) {
        return meal == BREAKFAST ? 'B' : meal == LUNCH ? 'L' : meal == DINNER ? 'D' : 'S';
    };
    for (const Group &group : groups) {
        bool open = false;
        for (const FoodDiaryItem &food : diary.foods) {
            if (groupOf(food.meal) != group.letter)
                continue;
            if (!open) {
                xml.startElement(QStringLiteral("group"));
                xml.attribute(QStringLiteral("id"), int(group.letter)); // the code, as the server expects
                xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(day));
                xml.attribute(QStringLiteral("meal"), QString(QLatin1Char(group.letter)));
                xml.attribute(QStringLiteral("desc"), QLatin1String(group.word));
                open = true;
            }
            xml.startElement(QStringLiteral("food"));
            xml.attribute(QStringLiteral("qty"), food.size);
            xml.attribute(QStringLiteral("desc"), food.food_name);
            xml.attribute(QStringLiteral("serving"), food.serv_name);
            const QPair<const char *, int> values[] = {
                {"calories", ENERGY},         {"fat", FAT},       {"fiber", FIBER},
                {"protein", PROTEIN},         {"carbs", CARB},    {"saturated_fatty_acids", SATURATED_FAT},
                {"cholesterol", CHOLESTEROL}, {"sodium", SODIUM}, {"sugars", SUGAR},
                {"calcium", CALCIUM}};
            for (const auto &[name, type] : values)
                xml.attribute(QLatin1String(name), food.getNutrient(type));
            xml.endElement();
        }
        if (open)
            xml.endElement();
    }
    if (!diary.exercises.isEmpty()) {
        xml.startElement(QStringLiteral("group"));
        xml.attribute(QStringLiteral("id"), int('E'));
        xml.attribute(QStringLiteral("date"), DateConversion::toWebDate(day));
        xml.attribute(QStringLiteral("meal"), QStringLiteral("E"));
        xml.attribute(QStringLiteral("desc"), QStringLiteral("Exercise"));
        for (const ExerciseDiaryItem &exercise : diary.exercises) {
            xml.startElement(QStringLiteral("exercise"));
            xml.attribute(QStringLiteral("duration"), exercise.duration);
            xml.attribute(QStringLiteral("desc"), exercise.name);
            xml.attribute(QStringLiteral("calories"), exercise.duration * exercise.rate);
            xml.endElement();
        }
        xml.endElement();
    }
    xml.endElement();
    return true;
}

void LmPublish::onStateChanged(int state)
{
    if (!_running)
        return;
    const QPair<int, int> steps[] = {{QHttps::Connecting, Connecting},
                                     {QHttps::Sending, Sending},
                                     {QHttps::Reading, Reading},
                                     {QHttps::Closing, Disconnecting}};
    for (const auto &[httpState, step] : steps) {
        if (state == httpState)
            emit stepChanged(step, true, QString());
    }
}

void LmPublish::onDone(bool error)
{
    if (!_running)
        return;
    _running = false;
    const QString address = webAddress();
    if (error && _http->error() == QHttps::Aborted) {
        emit finished(QStringLiteral("Cancelled by user"));
        return;
    }
    // A proxy's own page (407, or 500 for a server it cannot reach) is well-formed too, but the
    // server never saw the document.
    const int status = _http->lastResponse().statusCode();
    if (!error && status != 200) {
        qCDebug(lcNet, "publish answered with status %d", status);
        error = true;
    }
    if (error) {
        emit stepChanged(Connecting, false,
                         QStringLiteral("Connection to ") + address +
                             QStringLiteral(" failed. Check proxy and Internet settings."));
        for (const int step : {Sending, Reading, Disconnecting, Done})
            emit stepChanged(step, false, QStringLiteral("Skipped"));
        emit finished(QStringLiteral("Error occured"));
        return;
    }
    PublishResponse response;
    const bool parsed = response.parse(_http->readAll());
    if (parsed && response.errnum == 0) {
        markSynchronised();
        emit stepChanged(Reading, true, QStringLiteral("Reading (Publish completed!)"));
        emit stepChanged(Disconnecting, true, QString());
        emit stepChanged(Done, true, QString());
        emit finished(QStringLiteral("Completed successfully"));
        return;
    }
    emit stepChanged(Reading, false,
                     parsed ? QStringLiteral("Reading (FAILED!! Error message from ") + address +
                                  QStringLiteral(" <") + response.errstr + QStringLiteral(">)")
                            : QStringLiteral("Reading (FAILED!! Cannot interpret reply from ") + address +
                                  QLatin1Char(')'));
    emit stepChanged(Disconnecting, false, QStringLiteral("Skipped"));
    emit stepChanged(Done, false, QStringLiteral("Skipped"));
    emit finished(QStringLiteral("Complete"));
}

void LmPublish::markSynchronised()
{
    LmSettings::writeValue(QStringLiteral("LastSyncDate"),
                           QDate::currentDate().toString(QStringLiteral("yyyyMMdd")));
    const int device_id = deviceId(QStringLiteral("website"));
    LM_ASSERT(device_id == 0);
    LmSqlDb::begin();
    for (const char *table : {"water_diary_sync", "user_checkins_sync"}) {
        LmSqlQueryPtr gone = LmSqlDb::instance()->prepare(
            QStringLiteral("DELETE FROM %1 WHERE user_id = ? AND device = ? AND state = ?")
                .arg(QLatin1String(table)));
        execBound(gone, {_userId, device_id, 2});
        LmSqlQueryPtr rest = LmSqlDb::instance()->prepare(
            QStringLiteral("UPDATE %1 SET state = ? WHERE user_id = ? AND device = ?")
                .arg(QLatin1String(table)));
        execBound(rest, {0, _userId, device_id});
    }
    DiaryDB().markPublished(_userId);
    LmSqlDb::commit();
}
