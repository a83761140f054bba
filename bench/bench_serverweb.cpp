// A member's day page with 40 entries, asked for by a logged-in browser over loopback from the
// real tarnwell-server process (SQLite store), beside the floor: the store reading the same day in
// one process, without HTTP or HTML.

#include "server/accountdb.h"
#include "server/serverdb.h"
#include "server/serverdiarydb.h"
#include "server/websession.h"
#include "tests/childprocess.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

namespace {

const QDate kDay(2026, 3, 10);

struct Site
{
    QTemporaryDir data;
    std::unique_ptr<ServerDB> db;
    qint64 member = -1;
    QProcess server;
    quint16 port = 0;
    QByteArray cookie;
    QString error;

    ~Site()
    {
        server.terminate();
        server.waitForFinished(10000);
    }
};

// One request on a keep-alive connection; the body of the answer, or empty on failure.
QByteArray exchange(QTcpSocket &socket, const QByteArray &request, QByteArray *headers = nullptr)
{
    socket.write(request);
    QByteArray got;
    qsizetype end = -1;
    qint64 length = -1;
    while (socket.waitForReadyRead(5000)) {
        got += socket.readAll();
        if (end < 0 && (end = got.indexOf("\r\n\r\n")) >= 0) {
            static const QRegularExpression field(QStringLiteral("(?im)^content-length:\\s*(\\d+)"));
            const auto match = field.match(QString::fromLatin1(got.left(end)));
            length = match.hasMatch() ? match.captured(1).toLongLong() : 0;
        }
        if (end >= 0 && got.size() >= end + 4 + length)
            break;
    }
    if (end < 0 || got.size() < end + 4 + length)
        return {};
    if (headers)
        *headers = got.left(end);
    return got.mid(end + 4, length);
}

QByteArray cookieOf(const QByteArray &headers, const char *name)
{
    const QRegularExpression set(
        QStringLiteral("(?im)^set-cookie:\\s*(%1=[^;\\r\\n]*)").arg(QLatin1String(name)));
    return set.match(QString::fromLatin1(headers)).captured(1).toLatin1();
}

Site *site()
{
    static std::unique_ptr<Site> s;
    if (s)
        return s.get();
    s = std::make_unique<Site>();
    s->db = std::make_unique<ServerDB>(ServerDB::defaultUrl(s->data.path()));
    AccountDB accounts(*s->db);
    if (!s->db->open(&s->error) ||
        !accounts.addMember(QStringLiteral("ann"), QStringLiteral("secret"), &s->error))
        return s.get();
    s->member = accounts.member(QStringLiteral("ann"))->id;
    DiaryUpdate update;
    PublishedDay day{kDay, {}, {}};
    for (int i = 0; i < 40; ++i) {
        PublishedFood food;
        food.meal = QLatin1String("BLDS").at(i % 4);
        food.qty = 1 + i % 3;
        food.desc = QStringLiteral("Entry %1 with a longer name, cooked").arg(i);
        food.serving = QStringLiteral("1 cup");
        for (std::size_t v = 0; v < food.values.size(); ++v)
            food.values[v] = 10.0 * double(v + 1) + i;
        day.foods.append(food);
    }
    update.days.append(day);
    if (!ServerDiaryDB(*s->db).apply(s->member, update, &s->error))
        return s.get();

    endWithParent(s->server);
    s->server.start(QStringLiteral(TARNWELL_BIN_DIR "/tarnwell-server"),
                    {QStringLiteral("serve"), QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0"),
                     QStringLiteral("--data"), s->data.path()});
    static const QRegularExpression listening(QStringLiteral("listening on http://127\\.0\\.0\\.1:(\\d+)/"));
    QByteArray out;
    while (s->server.waitForReadyRead(10000)) {
        out += s->server.readAllStandardOutput();
        if (const auto match = listening.match(QString::fromLatin1(out)); match.hasMatch()) {
            s->port = quint16(match.captured(1).toUInt());
            break;
        }
    }
    if (!s->port) {
        s->error = QStringLiteral("the server did not start");
        return s.get();
    }
    // Logged in through the form, as a browser is.
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), s->port);
    socket.waitForConnected(5000);
    QByteArray headers;
    const QByteArray form = exchange(socket, "GET /login HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", &headers);
    const QByteArray loginCookie = cookieOf(headers, WebSession::kLoginCookie);
    static const QRegularExpression token(QStringLiteral("name=\"csrf\" value=\"([^\"]+)\""));
    const QByteArray body = "csrf=" + token.match(QString::fromLatin1(form)).captured(1).toLatin1() +
                            "&next=%2F&name=ann&password=secret";
    exchange(socket,
             "POST /login HTTP/1.1\r\nHost: 127.0.0.1\r\nCookie: " + loginCookie +
                 "\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                 QByteArray::number(body.size()) + "\r\n\r\n" + body,
             &headers);
    s->cookie = cookieOf(headers, WebSession::kSessionCookie);
    if (s->cookie.isEmpty())
        s->error = QStringLiteral("the login was refused");
    return s.get();
}

void BM_DayPage(benchmark::State &state)
{
    Site *s = site();
    if (!s->error.isEmpty()) {
        state.SkipWithError(qPrintable(s->error));
        return;
    }
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), s->port);
    socket.waitForConnected(5000);
    const QByteArray request = "GET /day/" + kDay.toString(Qt::ISODate).toLatin1() +
                               " HTTP/1.1\r\nHost: 127.0.0.1\r\nCookie: " + s->cookie + "\r\n\r\n";
    for (auto _ : state) {
        const QByteArray page = exchange(socket, request);
        if (!page.contains("Entry 39")) {
            state.SkipWithError("the day page did not come");
            return;
        }
        benchmark::DoNotOptimize(page.data());
    }
}

void BM_DayPage_Floor(benchmark::State &state)
{
    Site *s = site();
    if (!s->error.isEmpty()) {
        state.SkipWithError(qPrintable(s->error));
        return;
    }
    ServerDiaryDB diary(*s->db);
    for (auto _ : state) {
        const ServerDiaryDB::Day day = diary.day(s->member, kDay);
        if (day.foods.size() != 40) {
            state.SkipWithError("the day was not read");
            return;
        }
        benchmark::DoNotOptimize(day.foods.constData());
    }
}

BENCHMARK(BM_DayPage_Floor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DayPage)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
