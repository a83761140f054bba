// tarnwell-server as a household runs it: the real program on a free loopback port, over an
// SQLite file and over a PostgreSQL cluster started for the run, spoken to by the real
// tarnwell-cli (publish, meal plan, update-db, metrics over TLS) and by raw HTTP for what the
// program never sends.

#include "childprocess.h"
#include "httptestserver.h"
#include "pgcluster.h"
#include "server/accountdb.h"
#include "server/mealplandb.h"
#include "server/metricsdb.h"
#include "server/plainxml.h"
#include "server/publishreader.h"
#include "server/serverdb.h"
#include "server/serverdiarydb.h"
#include "server/webrequest.h"
#include "testsupport.h"
#include "webclient.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSslCertificate>
#include <QSslSocket>

#include <bit>
#include <csignal>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QByteArray kPwHash = "5ebe2294ecd0e0f08eab7690d2a6ee69"; // MD5 of "secret"

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

Run runProgram(const QString &program, const QStringList &arguments, const QProcessEnvironment &env,
               const QByteArray &input = {})
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(binDir() + u'/' + program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

// A reply read off a raw connection: status, body, whether the server closed, how much of the
// body the client got to send.
struct Exchange
{
    int status = 0;
    QByteArray reply;
    bool closed = false;
    qint64 bodySent = 0;
};

bool complete(const QByteArray &reply)
{
    const qsizetype end = reply.indexOf("\r\n\r\n");
    static const QRegularExpression length(u"(?i)\r\ncontent-length: *(\\d+)"_s);
    const QRegularExpressionMatch match = length.match(QString::fromLatin1(reply.left(end)));
    return end >= 0 && match.hasMatch() && reply.size() >= end + 4 + match.captured(1).toLongLong();
}

// Sends request, then fill bytes of body as long as the server takes them, and reads one reply.
Exchange exchange(QTcpSocket &socket, const QByteArray &request, qint64 fill = 0, int waitMs = 10000)
{
    Exchange result;
    socket.write(request);
    const QByteArray chunk(64 * 1024, 'x');
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < waitMs) {
        if (result.bodySent < fill && socket.bytesToWrite() < chunk.size()) {
            const qint64 n = std::min<qint64>(chunk.size(), fill - result.bodySent);
            if (socket.write(chunk.constData(), n) == n)
                result.bodySent += n;
        }
        socket.waitForBytesWritten(5);
        socket.waitForReadyRead(5);
        result.reply += socket.readAll();
        if (socket.state() != QAbstractSocket::ConnectedState) {
            result.closed = true;
            break;
        }
        if (complete(result.reply) && result.bodySent >= fill) {
            // A reply that says it closes the connection must do so.
            if (result.reply.contains("\r\nConnection: close\r\n"))
                result.closed = socket.waitForDisconnected(2000);
            break;
        }
    }
    result.status = result.reply.startsWith("HTTP/1.1 ") ? result.reply.mid(9, 3).toInt() : 0;
    return result;
}

QByteArray publishRequest(const QByteArray &document, const QByteArray &user = "ann")
{
    const QByteArray body = "xml=" + document.toPercentEncoding();
    return "POST /diary/publish?username=" + user.toPercentEncoding() + "&pwhash=" + kPwHash +
           "&product=tarnwell&version=4.1.0&platform=windows HTTP/1.1\r\nHost: 127.0.0.1\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

QByteArray diaryDocument(int foods)
{
    QByteArray items;
    for (int i = 0; i < foods; ++i)
        items += "<food qty=\"1\" desc=\"Pea\" serving=\"1 cup\" calories=\"1\" />";
    return "<diaryupdate><diary><diaryday date=\"2026-03-10\"><group meal=\"L\">" + items +
           "</group></diaryday></diary></diaryupdate>";
}

// The day as the server keeps it, one line.
QString describe(const ServerDiaryDB::Day &day)
{
    QStringList parts;
    for (const PublishedFood &food : day.foods)
        parts.append(u"%1 %2 x %3 %4 cals"_s.arg(food.meal).arg(food.qty).arg(food.serving, food.desc) +
                     (food.values[0] ? u" %1"_s.arg(*food.values[0]) : QString()));
    for (const PublishedExercise &exercise : day.exercises)
        parts.append(u"E %1 %2 min %3"_s.arg(exercise.desc).arg(exercise.duration).arg(exercise.calories));
    if (day.cups)
        parts.append(u"water %1"_s.arg(*day.cups));
    if (day.checkin)
        parts.append(u"weight %1 waist %2 note %3"_s.arg(day.checkin->weight.value_or(-1))
                         .arg(day.checkin->waist.value_or(-1))
                         .arg(day.checkin->note));
    return parts.join(u"; "_s);
}

} // namespace

class TestServerProtocol : public QObject
{
    Q_OBJECT

private:
    // One site: a data folder, its database, the server process on it, and the member ann.
    struct Site
    {
        QTemporaryDir data;
        QString url;
        QProcess server;
        quint16 port = 0;
        std::unique_ptr<ServerDB> db;
        qint64 ann = -1;
    };

    PgCluster _pg;
    QString _pgUnavailable;
    std::unique_ptr<TemporaryHome> _home;
    std::unique_ptr<Site> _site;
    QTemporaryDir _tls;
    QString _certificate, _key; // for "localhost" and 127.0.0.1, in _tls

    QStringList siteArguments() const
    {
        return {u"--data"_s, _site->data.path(), u"--database"_s, _site->url};
    }
    Run server(const QStringList &arguments, const QByteArray &input = {})
    {
        return runProgram(u"tarnwell-server"_s, arguments + siteArguments(), _home->environment(), input);
    }
    Run cli(const QStringList &arguments)
    {
        return runProgram(u"tarnwell-cli"_s, arguments, _home->environment());
    }
    QString cliOk(const QString &line)
    {
        const Run run = cli(line.split(u' '));
        if (run.status != 0)
            qWarning("%s: %s", qPrintable(line), qPrintable(run.err));
        return run.out.trimmed();
    }
    QString siteAddress() const { return u"http://127.0.0.1:%1/"_s.arg(_site->port); }

    // A site on the backend, with ann (password "secret") and the server started with extra.
    bool open(const QString &backend, const QStringList &extra = {});
    bool startServer(const QStringList &extra);
    int stopServer();
    // Ann's profile in the program, with her web account, pointed at the site.
    bool makeProfile();
    ServerDiaryDB::Day day(const QDate &date) { return ServerDiaryDB(*_site->db).day(_site->ann, date); }
    static void addBackends()
    {
        QTest::addColumn<QString>("backend");
        QTest::newRow("sqlite") << u"sqlite"_s;
        QTest::newRow("postgresql") << u"postgresql"_s;
    }

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void publishFromTheProgram_data() { addBackends(); }
    void publishFromTheProgram();
    void mealPlanForTheProgram_data() { addBackends(); }
    void mealPlanForTheProgram();
    void refusedRequests_data();
    void refusedRequests();
    void plainReader_data();
    void plainReader();
    void formDecoding_data();
    void formDecoding();
    void throttledLogins();
    void connections_data();
    void connections();
    void concurrentClients_data();
    void concurrentClients();
    void databaseUpdate();
    void metricsOverTls_data();
    void metricsOverTls();
    void tlsFilesReadAgain();
    void commandLine_data();
    void commandLine();
};

void TestServerProtocol::initTestCase()
{
    const TemporaryHome home; // for the cluster's and openssl's set-up
    for (const char *program :
         {"tarnwell-server", "tarnwell-cli", "brand.dat", "userdata.db", "content/static.db"})
        QVERIFY2(QFile::exists(binDir() + u'/' + QLatin1String(program)), program);
    if (PgCluster::available(&_pgUnavailable)) {
        QString error;
        QVERIFY2(_pg.start(&error), qPrintable(error));
    }
    HttpTestServer maker;
    const QString certificate = maker.makeCertificate();
    // Kept for the run: the maker's folder goes with it.
    if (!certificate.isEmpty() && QFile::copy(certificate, _tls.filePath(u"cert.pem"_s)) &&
        QFile::copy(QFileInfo(certificate).dir().filePath(u"key.pem"_s), _tls.filePath(u"key.pem"_s))) {
        _certificate = _tls.filePath(u"cert.pem"_s);
        _key = _tls.filePath(u"key.pem"_s);
    }
}

void TestServerProtocol::init()
{
    _home = std::make_unique<TemporaryHome>();
    _site = std::make_unique<Site>();
}

void TestServerProtocol::cleanup()
{
    if (_site && _site->server.state() != QProcess::NotRunning)
        QCOMPARE(stopServer(), 0); // SIGTERM ends it cleanly
    _site.reset();
    _home.reset();
}

bool TestServerProtocol::open(const QString &backend, const QStringList &extra)
{
    QString error;
    _site->url =
        backend == "sqlite"_L1 ? ServerDB::defaultUrl(_site->data.path()) : _pg.emptyDatabase(&error);
    const Run added = server({u"user-add"_s, u"ann"_s}, "secret\n");
    if (_site->url.isEmpty() || added.status != 0) {
        qWarning("site not made: %s %s", qPrintable(error), qPrintable(added.err));
        return false;
    }
    _site->db = std::make_unique<ServerDB>(_site->url);
    if (!_site->db->open(&error) || !AccountDB(*_site->db).member(u"ann"_s))
        return false;
    _site->ann = AccountDB(*_site->db).member(u"ann"_s)->id;
    return startServer(extra);
}

bool TestServerProtocol::startServer(const QStringList &extra)
{
    QProcess &process = _site->server;
    process.setProcessEnvironment(_home->environment());
    endWithParent(process);
    process.start(binDir() + u"/tarnwell-server"_s,
                  QStringList{u"serve"_s, u"--listen"_s, u"127.0.0.1:0"_s} + siteArguments() + extra);
    // It says where it listens once it does.
    static const QRegularExpression listening(u"listening on http://127\\.0\\.0\\.1:(\\d+)/"_s);
    QByteArray out;
    while (process.waitForReadyRead(10000)) {
        out += process.readAllStandardOutput();
        const QRegularExpressionMatch match = listening.match(QString::fromUtf8(out));
        if (match.hasMatch()) {
            _site->port = quint16(match.captured(1).toUInt());
            return true;
        }
    }
    qWarning("server did not start: %s", process.readAllStandardError().constData());
    return false;
}

int TestServerProtocol::stopServer()
{
    ::kill(pid_t(_site->server.processId()), SIGTERM);
    const int status = !_site->server.waitForFinished(10000)                ? -1
                       : _site->server.exitStatus() == QProcess::NormalExit ? _site->server.exitCode()
                                                                            : -1;
    if (status != 0) // what the server said, to know why
        qWarning("server: %s", _site->server.readAllStandardError().right(3000).constData());
    return status;
}

bool TestServerProtocol::makeProfile()
{
    return cli(u"profile-add --name Ann --sex female --born 1985-04-02 --height 168 --weight 61.5"_s.split(
                   u' '))
                   .status == 0 &&
           cli(u"profile-set --web-user ann --web-password secret"_s.split(u' ')).status == 0 &&
           cli({u"config"_s, u"server"_s, siteAddress()}).status == 0;
}

#define OPEN_SITE(...)                                                                                       \
    QFETCH(QString, backend);                                                                                \
    if (backend == "postgresql"_L1 && !_pgUnavailable.isEmpty())                                             \
        QSKIP(qPrintable(_pgUnavailable));                                                                   \
    QVERIFY(open(backend __VA_OPT__(, ) __VA_ARGS__))

void TestServerProtocol::publishFromTheProgram()
{
    OPEN_SITE();
    QVERIFY(makeProfile());
    const QString flapjack = cliOk(u"food-add --name Flapjack --serving bar --calories 250 --fat 12"_s);
    const QString rowing = cliOk(u"exercise-add --name Rowing --met 7"_s);
    cliOk(u"checkin 2026-03-01 --weight 60"_s);
    for (const QString &line : {u"log-food 2026-03-10 breakfast 9003 --qty 2"_s,
                                u"log-food 2026-03-10 lunch %1 --qty 1.5"_s.arg(flapjack),
                                u"log-exercise 2026-03-10 %1 30"_s.arg(rowing), u"water 2026-03-10 6"_s})
        QCOMPARE(cli(line.split(u' ')).status, 0);
    QCOMPARE(cli({u"checkin"_s, u"2026-03-10"_s, u"--weight"_s, u"61.5"_s, u"--waist"_s, u"70"_s, u"--note"_s,
                  u"felt \"good\" & <well>"_s})
                 .status,
             0);
    const QString soup = cliOk(u"log-food 2026-03-11 dinner %1"_s.arg(flapjack));

    const Run published = cli({u"publish"_s});
    QVERIFY2(published.out.endsWith(u"Completed successfully\n"_s),
             qPrintable(published.out + published.err));
    const QString apples = u"B 2 x 1 medium (3\" dia) Apples, raw, with skin cals 189.28"_s;
    QCOMPARE(describe(day(QDate(2026, 3, 10))),
             apples + u"; L 1.5 x bar Flapjack cals 375; E Rowing 30 min 220.5; water 6; "
                      "weight 61.5 waist 70 note felt \"good\" & <well>"_s);
    QCOMPARE(describe(day(QDate(2026, 3, 11))), u"D 1 x bar Flapjack cals 250"_s);

    // The day's entries are replaced, an emptied day cleared, a removed check-in deleted.
    cliOk(u"remove food %1"_s.arg(soup));
    cliOk(u"checkin-remove 2026-03-10"_s);
    cliOk(u"water 2026-03-10 8"_s);
    cliOk(u"log-food 2026-03-10 snack1 9003"_s);
    QCOMPARE(cli({u"publish"_s}).status, 0);
    QCOMPARE(describe(day(QDate(2026, 3, 11))), QString());
    const QString tenth = describe(day(QDate(2026, 3, 10)));
    QVERIFY2(tenth.endsWith(u"; E Rowing 30 min 220.5; water 8"_s) && tenth.count(u"Apples"_s) == 2,
             qPrintable(tenth));

    // A wrong password changes nothing, and the program is told why.
    cliOk(u"profile-set --web-password wrong"_s);
    cliOk(u"water 2026-03-10 9"_s);
    const Run refused = cli({u"publish"_s});
    QCOMPARE(refused.status, 1);
    QVERIFY2(refused.out.contains(u"<bad login>"_s), qPrintable(refused.out));
    QCOMPARE(describe(day(QDate(2026, 3, 10))), tenth);
}

void TestServerProtocol::mealPlanForTheProgram()
{
    OPEN_SITE();
    QVERIFY(makeProfile());
    const QDate today = QDate::currentDate();
    // Planned on the web page, from the reference database the server has.
    Client web(siteAddress().chopped(1));
    QVERIFY(web.logIn(u"ann"_s, u"secret"_s));
    const QString form = QString::fromUtf8(
        web.get(u"/plan?food=9003&meal=B&date="_s + today.addDays(1).toString(Qt::ISODate)).body);
    static const QRegularExpression medium(u"<option value=\"(\\d+)\"[^>]*>1 medium"_s);
    const QString serving = medium.match(form).captured(1);
    QVERIFY2(!serving.isEmpty(), qPrintable(form));
    QCOMPARE(web.post(u"/plan"_s, {{u"csrf"_s, web.csrf()},
                                   {u"action"_s, u"add"_s},
                                   {u"food"_s, u"9003"_s},
                                   {u"serving"_s, serving},
                                   {u"qty"_s, u"2"_s},
                                   {u"date"_s, today.addDays(1).toString(Qt::ISODate)},
                                   {u"meal"_s, u"B"_s}})
                 .status,
             303);
    // Text the document must carry intact, and a day beyond the week.
    MealPlanDB plans(*_site->db);
    QString error;
    for (const PlannedFood &food :
         {PlannedFood{-1, today.addDays(2), u'B', u"Porridge & \"honey\""_s, u"1 bowl"_s, 1.5, double(150.1f),
                      27, 3, 4, 5},
          PlannedFood{-1, today.addDays(3), u'S', u"Tea\tcake"_s, u"1 slice"_s, 1, 80, 0, 0, std::nullopt, 0},
          PlannedFood{-1, today.addDays(9), u'L', u"Beyond the week"_s, u"1"_s, 1, 1, 0, 0, 0, 0}})
        QVERIFY2(plans.add(_site->ann, food, &error) > 0, qPrintable(error));
    const Run plan = cli({u"mealplan"_s});
    QCOMPARE(plan.err, QString());
    QCOMPARE(
        plan.out,
        u"%1\tBreakfast\t2 x 1 medium (3\" dia)\tApples, raw, with skin\n"
        "%2\tBreakfast\t1.5 x 1 bowl\tPorridge & \"honey\"\n%3\tEvening snack\t1 x 1 slice\tTea\\tcake\n"_s
            .arg(today.addDays(1).toString(Qt::ISODate), today.addDays(2).toString(Qt::ISODate),
                 today.addDays(3).toString(Qt::ISODate)));
    { // the fiber no one knew stays unknown in the program's plan
        QSqlDatabase diary = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"plan"_s);
        diary.setDatabaseName(_home->diaryFolder() + u"userdata.db"_s);
        QVERIFY(diary.open());
        QSqlQuery query(u"SELECT fiber, calories FROM food_mealplan ORDER BY food_name DESC"_s, diary);
        QVERIFY(query.next());
        QVERIFY(query.value(0).isNull());
        QCOMPARE(query.value(1).toDouble(), 80.0);
    }
    QSqlDatabase::removeDatabase(u"plan"_s);
    { // values as short as the float they are
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, _site->port);
        QVERIFY(socket.waitForConnected(5000));
        const QByteArray reply =
            exchange(socket, "GET /mealplan?username=ann&pwhash=" + kPwHash +
                                 "&begindate=" + today.toString(Qt::ISODate).toLatin1() +
                                 "&enddate=" + today.addDays(7).toString(Qt::ISODate).toLatin1() +
                                 " HTTP/1.1\r\nHost: x\r\n\r\n")
                .reply;
        QVERIFY2(reply.contains("calories=\"150.1\" carbohydrate=\"27\""), reply.constData());
    }
    cliOk(u"profile-set --web-password wrong"_s);
    QVERIFY(cli({u"mealplan"_s}).err.contains(u"bad login (3)"_s));
}

void TestServerProtocol::refusedRequests_data()
{
    QTest::addColumn<QString>("backend");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<qint64>("fill"); // body bytes streamed after the request
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reply"); // a part of the reply
    QTest::addColumn<bool>("closed");

    const QByteArray bomb =
        "<?xml version=\"1.0\"?>\n<!DOCTYPE diaryupdate [<!ENTITY a \"aaaaaaaaaa\">"
        "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">]>"
        "<diaryupdate><diary><diaryday date=\"2026-03-10\"><group meal=\"L\"><food qty=\"1\" desc=\"&c;\"/>"
        "</group></diaryday></diary></diaryupdate>";
    const QByteArray badDocument = "<response errno=\"4\" errstr=\"bad document\" />";
    const QByteArray badLogin = "<response errno=\"3\" errstr=\"bad login\" />";
    struct Row
    {
        const char *name;
        QByteArray request;
        qint64 fill;
        int status;
        QByteArray reply;
        bool closed;
    };
    const Row rows[] = {
        {"body over the limit",
         "POST /diary/publish?username=ann&pwhash=" + kPwHash + " HTTP/1.1\r\nHost: x\r\nContent-Length: " +
             QByteArray::number(9 * 1024 * 1024) + "\r\n\r\nxml=",
         9 * 1024 * 1024 - 4, 413, "request body too large", true},
        {"web form over its limit", "POST /login HTTP/1.1\r\nHost: x\r\nContent-Length: 70000\r\n\r\n", 0,
         413, "request body too large", true},
        {"header over the limit",
         "GET /mealplan HTTP/1.1\r\nHost: x\r\nX-Pad: " + QByteArray(17000, 'p') + "\r\n\r\n", 0, 431,
         "request header too large", true},
        {"chunked body",
         "POST /diary/publish HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: "
         "chunked\r\n\r\n5\r\nxml=<\r\n0\r\n\r\n",
         0, 411, "Content-Length", true},
        {"two lengths",
         "POST /metrics HTTP/1.1\r\nHost: x\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab", 0, 400,
         "bad Content-Length", true},
        {"entity bomb", publishRequest(bomb), 0, 200, badDocument, false},
        {"any DTD", publishRequest("<!DOCTYPE diaryupdate><diaryupdate/>"), 0, 200, badDocument, false},
        {"not a number", publishRequest(diaryDocument(1).replace("qty=\"1\"", "qty=\"1e999\"")), 0, 200,
         badDocument, false},
        {"too many items", publishRequest(diaryDocument(2001)), 0, 200,
         "<response errno=\"6\" errstr=\"document too large\" />", false},
        {"SQL in the user name", publishRequest(diaryDocument(1), "ann' OR '1'='1"), 0, 200, badLogin, false},
        {"SQL dropping a table", publishRequest(diaryDocument(1), "x'); DROP TABLE members; --"), 0, 200,
         badLogin, false},
        {"wrong password", publishRequest(diaryDocument(1)).replace(kPwHash, QByteArray(32, '0')), 0, 200,
         badLogin, false},
        {"wrong method", "GET /diary/publish HTTP/1.1\r\nHost: x\r\n\r\n", 0, 405, "", false},
        {"unknown product", "GET /staticdb/other/update.rss HTTP/1.1\r\nHost: x\r\n\r\n", 0, 404, "", false},
    };
    for (const char *backend : {"sqlite", "postgresql"}) {
        for (const Row &row : rows) {
            QTest::addRow("%s, %s", row.name, backend) << QString::fromLatin1(backend) << row.request
                                                       << row.fill << row.status << row.reply << row.closed;
        }
    }
}

void TestServerProtocol::refusedRequests()
{
    OPEN_SITE();
    QFETCH(QByteArray, request);
    QFETCH(qint64, fill);
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, _site->port);
    QVERIFY(socket.waitForConnected(5000));
    const Exchange answer = exchange(socket, request, fill);
    QTEST(answer.status, "status");
    QFETCH(QByteArray, reply);
    QVERIFY2(answer.reply.contains(reply), answer.reply.left(300).constData());
    QTEST(answer.closed, "closed");
    if (fill > 0)
        QVERIFY2(answer.bodySent < fill, "the server read the whole body");
    // Nothing stored, every table still there, ann still a member.
    QCOMPARE(ServerDiaryDB(*_site->db).loggedDays(_site->ann, QDate(2000, 1, 1), QDate(2100, 1, 1)),
             QList<QDate>());
    QCOMPARE(AccountDB(*_site->db).members().size(), 1);
}

void TestServerProtocol::plainReader_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<bool>("plain"); // read by the fast reader, not left to Qt's
    QTest::addColumn<QByteArray>("qty");
    const QByteArray day = "<diary><diaryday date=\"2026-03-10\"><group meal=\"B\"><food qty=\"1\" "
                           "desc=\"%1\" serving=\"cup\" calories=\"90\" /></group></diaryday></diary>";
    const auto document = [&](const QByteArray &desc, const QByteArray &head = "<?xml version=\"1.0\" "
                                                                               "encoding=\"UTF-8\" ?>\n") {
        return head + "<diaryupdate protocol=\"1.1\">\n  " + QByteArray(day).replace("%1", desc) +
               "\n</diaryupdate>\n";
    };
    QTest::newRow("as the program writes it")
        << document("Fish &amp; Chips &lt;large&gt;, Bob's") << true << QByteArray();
    QTest::newRow("character references") << document("caf&#233; &#x1F375;&#10;&#9;") << true << QByteArray();
    QTest::newRow("no declaration, single quotes")
        << document("x", "").replace('"', '\'') << true << QByteArray();
    QTest::newRow("a line break in a value") << document("two\nlines") << false << QByteArray();
    QTest::newRow("a comment") << document("x").replace("<diary>", "<!-- hi --><diary>") << false
                               << QByteArray();
    QTest::newRow("CDATA") << document("x").replace("</group>", "<![CDATA[ ]]></group>") << false
                           << QByteArray();
    QTest::newRow("Latin-1 declared")
        << document("caf\xe9", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>") << false << QByteArray();
    QTest::newRow("a byte order mark") << document("x", "\xef\xbb\xbf") << true << QByteArray();
    QTest::newRow("not UTF-8") << document("caf\xe9") << false << QByteArray();
    QTest::newRow("a forbidden character reference") << document("&#1;") << false << QByteArray();
    QTest::newRow("ends in the middle") << document("x").chopped(5) << false << QByteArray();
    QTest::newRow("wrong end tag") << document("x").replace("</group>", "</grup>") << false << QByteArray();
    // Numbers: each to the double that toDouble() reads, by whichever way it is read.
    for (const QByteArray qty : {"0.3", "-0", "007.50", "999999999999999", "1234567890.12345",
                                 "0.000000000000001", "9007199254740993", "0.30000000000000004", "1e2"}) {
        QTest::newRow(qty) << document("x").replace("qty=\"1\"", "qty=\"" + qty + '"') << true << qty;
    }
}

// Whatever reads a document, the result is the one Qt's reader gives; the program's documents
// take the fast way.
void TestServerProtocol::plainReader()
{
    QFETCH(QByteArray, document);
    QFETCH(bool, plain);
    QFETCH(QByteArray, qty);
    PlainXml reader;
    QCOMPARE(reader.read(document, kMaxDepth, kMaxAttributeLength), plain);
    DiaryUpdate fast, qt;
    QString fastError, qtError;
    const bool fastOk = readDiaryUpdate(document, &fast, &fastError);
    QCOMPARE(fastOk, readDiaryUpdate(document, &qt, &qtError, nullptr, XmlReading::QtOnly));
    QCOMPARE(fastError, qtError);
    if (fastOk) {
        QCOMPARE(fast.days.size(), 1);
        QCOMPARE(fast.days[0].foods.size(), 1);
        QCOMPARE(fast.days[0].foods[0].desc, qt.days[0].foods[0].desc);
        const double expected = qty.isEmpty() ? 1 : qty.toDouble();
        QCOMPARE(std::bit_cast<quint64>(fast.days[0].foods[0].qty), std::bit_cast<quint64>(expected));
    }
    QVERIFY(!plain || fastOk);
}

void TestServerProtocol::formDecoding_data()
{
    QTest::addColumn<QByteArray>("encoded");
    QTest::addColumn<QByteArray>("decoded");
    QTest::newRow("escapes, either case") << QByteArray("%3Cfood%20desc%3d%22%e2%82%AC%22%2F%3E")
                                          << QByteArray("<food desc=\"\xe2\x82\xac\"/>");
    QTest::newRow("plus is a space") << QByteArray("a+b%2Bc") << QByteArray("a b+c");
    // What is not an escape stays as sent.
    QTest::newRow("not hex") << QByteArray("%zz%4g%") << QByteArray("%zz%4g%");
    QTest::newRow("cut short") << QByteArray("x%4") << QByteArray("x%4");
    QTest::newRow("a byte of 0 and of 255") << QByteArray("%00%ff") << QByteArray("\0\xff", 2);
}

void TestServerProtocol::formDecoding()
{
    QFETCH(QByteArray, encoded);
    QTEST(formDecoded(encoded), "decoded");
}

void TestServerProtocol::throttledLogins()
{
    QVERIFY(open(u"sqlite"_s));
    const QByteArray wrong = publishRequest(diaryDocument(1)).replace(kPwHash, QByteArray(32, '0'));
    const auto publish = [this](const QByteArray &request) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, _site->port);
        return socket.waitForConnected(5000) ? exchange(socket, request).reply : QByteArray();
    };
    for (int i = 0; i < AccountDB::kMaxFailuresPerMember; ++i)
        QVERIFY(publish(wrong).contains("errno=\"3\""));
    // Now even the right password is refused until the window ends, and nothing is stored.
    QVERIFY(publish(publishRequest(diaryDocument(1)))
                .endsWith("<response errno=\"2\" errstr=\"too many failed logins, try later\" />"));
    QCOMPARE(day(QDate(2026, 3, 10)).foods.size(), 0);
}

void TestServerProtocol::connections_data()
{
    QTest::addColumn<QByteArray>("first"); // bytes sent at once
    QTest::addColumn<int>("answers");      // replies read, one request at a time
    QTest::addColumn<int>("closedWithinMs");
    const QByteArray feed = "GET /staticdb/tarnwell/update.rss HTTP/1.1\r\nHost: x\r\n\r\n";
    QTest::newRow("several requests on one connection, then silence") << feed << 3 << 2500;
    QTest::newRow("a header that never ends") << QByteArray("GET / HTTP/1.1\r\nHost:") << 0 << 2500;
    QTest::newRow("silent from the start") << QByteArray() << 0 << 2500;
    QTest::newRow("a request before the last answer") << feed + feed << 0 << 500;
    QTest::newRow("TLS without a certificate") << QByteArray("\x16\x03\x01\x02\x00\x01", 6) << 0 << 500;
}

void TestServerProtocol::connections()
{
    QFETCH(QByteArray, first);
    QFETCH(int, answers);
    QVERIFY(open(u"sqlite"_s, {u"--idle-timeout"_s, u"1"_s}));
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, _site->port);
    QVERIFY(socket.waitForConnected(5000));
    for (int i = 0; i < answers; ++i) {
        const Exchange reply = exchange(socket, first);
        QCOMPARE(reply.status, 200);
        QVERIFY(!reply.closed);
    }
    if (answers == 0)
        socket.write(first);
    QElapsedTimer timer;
    timer.start();
    while (socket.state() == QAbstractSocket::ConnectedState && timer.elapsed() < 10000) {
        socket.waitForReadyRead(20);
        socket.readAll();
    }
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QFETCH(int, closedWithinMs);
    QVERIFY2(timer.elapsed() < closedWithinMs, qPrintable(QString::number(timer.elapsed())));
}

void TestServerProtocol::concurrentClients_data()
{
    QTest::addColumn<int>("staying");
    QTest::addColumn<int>("leaving"); // close their connection before the answer
    QTest::newRow("10 at once") << 10 << 0;
    QTest::newRow("40 at once, half of them leaving") << 20 << 20;
}

void TestServerProtocol::concurrentClients()
{
    QFETCH(int, staying);
    QFETCH(int, leaving);
    QVERIFY(open(u"sqlite"_s));
    // Rounds of clients, each on a connection of its own as the program makes them.
    for (int round = 0; round < 4; ++round) {
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        for (int i = 0; i < staying + leaving; ++i) {
            sockets.push_back(std::make_unique<QTcpSocket>());
            sockets.back()->connectToHost(QHostAddress::LocalHost, _site->port);
            QVERIFY(sockets.back()->waitForConnected(5000));
            sockets.back()->write(publishRequest(diaryDocument(3)));
            sockets.back()->flush();
            if (i >= staying)
                sockets.back()->abort();
        }
        for (int i = 0; i < staying; ++i) {
            const Exchange answer = exchange(*sockets[i], QByteArray());
            QVERIFY2(answer.reply.contains("errno=\"0\""), answer.reply.constData());
        }
    }
    QCOMPARE(day(QDate(2026, 3, 10)).foods.size(), 3);
}

void TestServerProtocol::databaseUpdate()
{
    QVERIFY(open(u"sqlite"_s));
    QVERIFY(makeProfile());
    // A copy of the database made on another day: the creation date sits at byte 36.
    const auto dated = [&](const char *day) {
        const QString path = _home->path() + u"/static-"_s + QLatin1String(day) + u".db"_s;
        QFile::copy(binDir() + u"/content/static.db"_s, path);
        QFile file(path);
        return file.open(QIODevice::ReadWrite) && file.seek(36) && file.write(day) == 10 ? path : QString();
    };
    // The program's own resource folder, its database made on 2099-12-30.
    const QString resources = _home->path() + u"/resources/"_s;
    QVERIFY(QDir().mkpath(resources + u"content"_s));
    for (const char *name : {"brand.dat", "userdata.db"})
        QVERIFY(QFile::copy(binDir() + u'/' + QLatin1String(name), resources + QLatin1String(name)));
    QVERIFY(QFile::copy(dated("2099-12-30"), resources + u"content/static.db"_s));
    const auto updateDb = [&](const QStringList &more = {}) {
        return cli(QStringList{u"--resourcedir"_s, resources, u"update-db"_s} + more).out;
    };

    QCOMPARE(updateDb(), u"Sorry, there are no database updates for your product\n"_s);
    const Run notADatabase = server({u"publish-db"_s, resources + u"brand.dat"_s});
    QCOMPARE(notADatabase.status, 1);
    QVERIFY2(notADatabase.err.contains(u"not a reference database"_s), qPrintable(notADatabase.err));
    // A database made the same day as the program's is no update.
    QCOMPARE(server({u"publish-db"_s, dated("2099-12-30")}).status, 0);
    QCOMPARE(updateDb(), u"Your databases are up to date.\n"_s);
    QCOMPARE(server({u"publish-db"_s, dated("2099-01-01")}).status, 1); // older than the published one
    QCOMPARE(server({u"publish-db"_s, dated("2099-12-31")}).status, 0);
    QCOMPARE(updateDb({u"--check"_s}),
             u"An update is available: %1staticdb/tarnwell/static.db.gz\n"_s.arg(siteAddress()));
    const QString updated = updateDb();
    QVERIFY2(updated.endsWith(u"Your databases have been updated successfully.\n"_s), qPrintable(updated));
    QFile installed(resources + u"content/static.db"_s);
    QVERIFY(installed.open(QIODevice::ReadOnly) && installed.seek(36));
    QCOMPARE(installed.read(10), QByteArray("2099-12-31"));
}

void TestServerProtocol::metricsOverTls_data()
{
    QTest::addColumn<QString>("backend");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("status");
    QTest::addColumn<qint64>("foodDiary"); // food diary changes counted on the server
    QTest::newRow("stored, sqlite") << u"sqlite"_s << QStringList() << 0 << qint64(2);
    QTest::newRow("stored, postgresql") << u"postgresql"_s << QStringList() << 0 << qint64(2);
    QTest::newRow("answered, not stored") << u"sqlite"_s << QStringList{u"--no-metrics"_s} << 0 << qint64(0);
    QTest::newRow("no certificate") << u"sqlite"_s << QStringList{u"-"_s} << 1 << qint64(0);
}

void TestServerProtocol::metricsOverTls()
{
    if (_certificate.isEmpty())
        QSKIP("the openssl tool is not available");
    QFETCH(QStringList, options);
    const bool tls = options != QStringList{u"-"_s};
    if (tls)
        options += {u"--tls-cert"_s, _certificate, u"--tls-key"_s, _key};
    else
        options.clear();
    OPEN_SITE(options);
    QVERIFY(makeProfile());
    // The program trusts the site's certificate from its resource folder.
    const QString resources = _home->path() + u"/resources/"_s;
    QVERIFY(QDir().mkpath(resources + u"content"_s));
    for (const char *name : {"brand.dat", "userdata.db", "content/static.db"})
        QVERIFY(QFile::copy(binDir() + u'/' + QLatin1String(name), resources + QLatin1String(name)));
    QVERIFY(QFile::copy(_certificate, resources + u"cert.pem"_s));
    cliOk(u"log-food 2026-03-02 lunch 9003"_s);
    cliOk(u"log-food 2026-03-02 dinner 9003"_s);
    const Run sent = cli({u"--resourcedir"_s, resources, u"metrics"_s});
    QFETCH(int, status);
    QVERIFY2(sent.status == status, qPrintable(sent.out + sent.err));
    if (status == 0)
        QCOMPARE(sent.out, u"Usage metrics sent.\n"_s);
    qint64 foodDiary = 0;
    for (const MetricsDB::Day &day : MetricsDB(*_site->db).days(QDate(2000, 1, 1), QDate(2100, 1, 1)))
        foodDiary += day.foodDiary;
    QTEST(foodDiary, "foodDiary");
}

// A renewed certificate is taken on SIGHUP; files that do not load leave the one in use.
void TestServerProtocol::tlsFilesReadAgain()
{
    if (_certificate.isEmpty())
        QSKIP("the openssl tool is not available");
    const QString cert = _site->data.filePath(u"cert.pem"_s), key = _site->data.filePath(u"key.pem"_s);
    const auto place = [&](const QString &fromCert, const QString &fromKey) {
        QFile::remove(cert);
        QFile::remove(key);
        return QFile::copy(fromCert, cert) && QFile::copy(fromKey, key);
    };
    const auto served = [&] {
        QSslSocket socket;
        socket.setPeerVerifyMode(QSslSocket::VerifyNone);
        socket.connectToHostEncrypted(u"127.0.0.1"_s, _site->port);
        return socket.waitForEncrypted(5000) ? socket.peerCertificate() : QSslCertificate();
    };
    const auto hangUp = [&](const QByteArray &logged) {
        ::kill(pid_t(_site->server.processId()), SIGHUP);
        QByteArray err;
        for (QDeadlineTimer deadline(10000); !err.contains(logged) && !deadline.hasExpired();) {
            _site->server.waitForReadyRead(50);
            err += _site->server.readAllStandardError();
        }
        return err.contains(logged);
    };
    QVERIFY(place(_certificate, _key));
    QVERIFY(open(u"sqlite"_s, {u"--tls-cert"_s, cert, u"--tls-key"_s, key}));
    const QSslCertificate first = QSslCertificate::fromPath(_certificate).value(0);
    QCOMPARE(served(), first);
    HttpTestServer maker;
    const QString renewed = maker.makeCertificate();
    QVERIFY(!renewed.isEmpty());
    QVERIFY(place(renewed, _key)); // a key that is not the certificate's
    QVERIFY(hangUp("TLS files not read again, the old ones stay: "));
    QCOMPARE(served(), first);
    QVERIFY(place(renewed, QFileInfo(renewed).dir().filePath(u"key.pem"_s)));
    QVERIFY(hangUp("TLS files read again"));
    QCOMPARE(served(), QSslCertificate::fromPath(renewed).value(0));
}

void TestServerProtocol::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message"); // the start of standard error, or of output
    QTest::addColumn<QString>("members"); // user-list afterwards

    const QString ann = u"ann"_s;
    QTest::newRow("add") << QStringList{u"user-add"_s, u"bo.b@home"_s} << QByteArray("pw\n") << 0
                         << u"added bo.b@home"_s << u"ann bo.b@home"_s;
    QTest::newRow("add twice") << QStringList{u"user-add"_s, ann} << QByteArray("pw\n") << 1
                               << u"tarnwell-server: ann is a member already"_s << ann;
    QTest::newRow("add without password") << QStringList{u"user-add"_s, u"bob"_s} << QByteArray() << 1
                                          << u"tarnwell-server: no password given"_s << ann;
    QTest::newRow("name with SQL") << QStringList{u"user-add"_s, u"x';--"_s} << QByteArray("pw\n") << 1
                                   << u"tarnwell-server: 'x';--' is not a member name"_s << ann;
    QTest::newRow("password") << QStringList{u"user-password"_s, ann} << QByteArray("new\n") << 0
                              << u"password of ann set"_s << ann;
    QTest::newRow("password of nobody") << QStringList{u"user-password"_s, u"zed"_s} << QByteArray("x\n") << 1
                                        << u"tarnwell-server: no member zed"_s << ann;
    QTest::newRow("remove") << QStringList{u"user-remove"_s, ann} << QByteArray() << 0 << u"removed ann"_s
                            << QString();
    QTest::newRow("no name") << QStringList{u"user-add"_s} << QByteArray() << 2
                             << u"tarnwell-server: user-add needs one NAME"_s << ann;
    QTest::newRow("unknown command") << QStringList{u"frob"_s} << QByteArray() << 2
                                     << u"tarnwell-server: unknown command 'frob'"_s << ann;
    QTest::newRow("serve option elsewhere")
        << QStringList{u"user-list"_s, u"--no-metrics"_s} << QByteArray() << 2
        << u"tarnwell-server: --no-metrics is an option of serve"_s << ann;
    QTest::newRow("bad listen address") << QStringList{u"serve"_s, u"--listen"_s, u"here"_s} << QByteArray()
                                        << 2 << u"tarnwell-server: --listen wants"_s << ann;
    QTest::newRow("certificate without key")
        << QStringList{u"serve"_s, u"--tls-cert"_s, u"c.pem"_s} << QByteArray() << 2
        << u"tarnwell-server: --tls-cert and --tls-key go together"_s << ann;
    QTest::newRow("missing database file")
        << QStringList{u"publish-db"_s, u"/nonexistent.db"_s} << QByteArray() << 1
        << u"tarnwell-server: /nonexistent.db: no such file"_s << ann;
}

void TestServerProtocol::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, input);
    QVERIFY(open(u"sqlite"_s));
    QCOMPARE(stopServer(), 0);
    const Run run = server(arguments, input);
    QTEST(run.status, "status");
    QFETCH(QString, message);
    QVERIFY2(run.err.startsWith(message), qPrintable(run.err));
    QStringList names;
    for (const QString &line : server({u"user-list"_s}).out.split(u'\n', Qt::SkipEmptyParts))
        names.append(line.section(u'\t', 0, 0));
    QTEST(names.join(u' '), "members");
}

QTEST_GUILESS_MAIN(TestServerProtocol)
#include "tst_serverprotocol.moc"
