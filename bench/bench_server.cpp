// Publishing to tarnwell-server under load: households publish a week of their diary (12 foods
// and 2 exercises a day, a check-in and water each day) at once, each over a connection of its
// own as the program does, over loopback against the real server process; as publishes per
// second and the latency of one publish (p50, p99) at 1, 10 and 50 clients, on SQLite and on a
// PostgreSQL cluster started for the run. Beside it the floor: the same rows through the same
// store in one process, in the same transactions, from as many threads, without HTTP, XML or
// login. Where the time goes: CPU microseconds per publish of the server process and of the load
// generator (and per week stored, of the floor's process); PostgreSQL's own processes are in none.

#include "server/accountdb.h"
#include "server/publishreader.h"
#include "server/serverdb.h"
#include "server/serverdiarydb.h"
#include "tests/childprocess.h"
#include "tests/pgcluster.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QThreadPool>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kHouseholds = 50;
const QByteArray kPwHash = "5ebe2294ecd0e0f08eab7690d2a6ee69"; // MD5 of "secret"

// The week as the program writes it.
QByteArray weekDocument()
{
    QByteArray xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n"
        "<diaryupdate protocol=\"1.1\" platform=\"WINDOWS\" os=\"WIN32\" locate=\"US\" >\n  <diary >\n";
    QByteArray checkins, waters;
    const char *const meals[] = {"B", "L", "D", "S"};
    for (int d = 0; d < 7; ++d) {
        const QByteArray date = QDate(2026, 3, 2).addDays(d).toString(Qt::ISODate).toLatin1();
        xml += "    <diaryday date=\"" + date + "\" >\n";
        for (const char *meal : meals) {
            xml += "      <group id=\"" + QByteArray::number(int(meal[0])) + "\" date=\"" + date +
                   "\" meal=\"" + meal + "\" desc=\"Meal\" >\n";
            for (int f = 0; f < 3; ++f) {
                xml += "        <food qty=\"1.5\" desc=\"Food " + QByteArray::number(f) +
                       " &amp; more\" serving=\"1 cup\" calories=\"120.5\" fat=\"3\" fiber=\"1.5\" "
                       "protein=\"4\" carbs=\"20\" saturated_fatty_acids=\"1\" cholesterol=\"-1\" "
                       "sodium=\"50\" sugars=\"5\" calcium=\"-1\" />\n";
            }
            xml += "      </group>\n";
        }
        xml += "      <group id=\"69\" date=\"" + date +
               "\" meal=\"E\" desc=\"Exercise\" >\n"
               "        <exercise duration=\"30\" desc=\"Walking\" calories=\"126\" />\n"
               "        <exercise duration=\"20\" desc=\"Rowing\" calories=\"150\" />\n      </group>\n"
               "    </diaryday>\n";
        checkins += "    <checkin date=\"" + date + "\" weight=\"61.5\" waist=\"70\" />\n";
        waters += "    <water date=\"" + date + "\" cups=\"6\" />\n";
    }
    return xml + "  </diary>\n  <checkins >\n" + checkins + "  </checkins>\n  <waters >\n" + waters +
           "  </waters>\n</diaryupdate>\n";
}

QString householdName(int i)
{
    return QStringLiteral("house%1").arg(i, 2, 10, QLatin1Char('0'));
}

// One backend: its database with the households, and the server process on it.
struct Site
{
    QTemporaryDir data;
    QString url;
    std::unique_ptr<ServerDB> db;
    QList<qint64> members;
    QProcess server;
    quint16 port = 0;
    QString error;

    ~Site()
    {
        if (server.state() != QProcess::NotRunning) {
            ::kill(pid_t(server.processId()), SIGTERM);
            server.waitForFinished(10000);
        }
    }
};

PgCluster g_pg;
std::unique_ptr<Site> g_sites[2];

Site *site(int backend)
{
    if (g_sites[backend])
        return g_sites[backend].get();
    auto s = std::make_unique<Site>();
    if (backend == 0) {
        s->url = ServerDB::defaultUrl(s->data.path());
    } else if (!PgCluster::available(&s->error) || (!g_pg.isRunning() && !g_pg.start(&s->error)) ||
               (s->url = g_pg.emptyDatabase(&s->error)).isEmpty()) {
        g_sites[backend] = std::move(s);
        return g_sites[backend].get();
    }
    s->db = std::make_unique<ServerDB>(s->url);
    if (s->db->open(&s->error)) {
        AccountDB accounts(*s->db);
        for (int i = 0; i < kHouseholds && s->error.isEmpty(); ++i) {
            if (accounts.addMember(householdName(i), QStringLiteral("secret"), &s->error))
                s->members.append(accounts.member(householdName(i))->id);
        }
    }
    if (s->error.isEmpty()) {
        s->server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        endWithParent(s->server);
        s->server.start(QStringLiteral(TARNWELL_BIN_DIR "/tarnwell-server"),
                        {QStringLiteral("serve"), QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0"),
                         QStringLiteral("--data"), s->data.path(), QStringLiteral("--database"), s->url});
        static const QRegularExpression listening(
            QStringLiteral("listening on http://127\\.0\\.0\\.1:(\\d+)/"));
        QByteArray out;
        while (!s->port && s->server.waitForReadyRead(10000)) {
            out += s->server.readAllStandardOutput();
            const QRegularExpressionMatch match = listening.match(QString::fromUtf8(out));
            if (match.hasMatch())
                s->port = quint16(match.captured(1).toUInt());
        }
        if (!s->port)
            s->error = QStringLiteral("the server did not start");
    }
    g_sites[backend] = std::move(s);
    return g_sites[backend].get();
}

QByteArray publishRequest(int household, const QByteArray &document)
{
    const QByteArray body = "xml=" + document.toPercentEncoding();
    return "POST http://127.0.0.1/diary/publish?username=" + householdName(household).toLatin1() +
           "&pwhash=" + kPwHash +
           "&product=tarnwell&version=4.1.0&platform=windows HTTP/1.1\r\n"
           "User-Agent: bench\r\nHost: 127.0.0.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
           "Content-Length: " +
           QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// clients connections at once, each publishing for its own household over a new connection
// until total publishes are done; the latency of each, in ms. Empty when a publish failed. Plain
// non-blocking sockets on one epoll: the generator shares the two cores with the server, and
// every microsecond it spends is one the server does not get.
std::vector<double> runLoad(quint16 port, int clients, int total, const QList<QByteArray> &requests)
{
    struct Client
    {
        int fd = -1;
        int household = 0;
        qsizetype sent = 0;
        QByteArray reply;
        QElapsedTimer timer;
    };
    std::vector<double> latencies;
    std::vector<Client> all(static_cast<size_t>(clients));
    const int poller = ::epoll_create1(EPOLL_CLOEXEC);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int started = 0;
    bool failed = poller < 0;
    const auto fail = [&](const char *what, const Client &c) {
        qWarning("%s: %s", what, c.reply.isEmpty() ? strerror(errno) : c.reply.constData());
        failed = true;
    };
    const auto next = [&](Client &c) {
        if (c.fd >= 0)
            ::close(c.fd); // also leaves the epoll set
        c.fd = -1;
        if (started >= total || failed)
            return;
        ++started;
        c.sent = 0;
        c.reply.clear();
        c.timer.start();
        c.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        epoll_event event{};
        event.events = EPOLLOUT | EPOLLIN;
        event.data.ptr = &c;
        if (c.fd < 0 ||
            (::connect(c.fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 &&
             errno != EINPROGRESS) ||
            ::epoll_ctl(poller, EPOLL_CTL_ADD, c.fd, &event) != 0)
            fail("connection failed", c);
    };
    // Whether the reply is whole: a header and as much body as it announces.
    const auto whole = [](const QByteArray &reply) {
        const qsizetype end = reply.indexOf("\r\n\r\n");
        const qsizetype length = reply.indexOf("Content-Length: ");
        if (end < 0 || length < 0)
            return false;
        const qsizetype lineEnd = reply.indexOf('\r', length);
        return reply.size() >= end + 4 + reply.mid(length + 16, lineEnd - length - 16).toLongLong();
    };
    for (int i = 0; i < clients; ++i) {
        all[size_t(i)].household = i % kHouseholds;
        next(all[size_t(i)]);
    }
    epoll_event events[64];
    char buffer[4096];
    while (!failed && int(latencies.size()) < total) {
        const int ready = ::epoll_wait(poller, events, 64, 10000);
        if (ready <= 0) {
            qWarning("no answer from the server");
            failed = true;
        }
        for (int e = 0; e < ready && !failed; ++e) {
            Client &c = *static_cast<Client *>(events[e].data.ptr);
            const QByteArray &request = requests.at(c.household);
            if ((events[e].events & EPOLLOUT) && c.sent < request.size()) {
                const ssize_t n =
                    ::send(c.fd, request.constData() + c.sent, size_t(request.size() - c.sent), MSG_NOSIGNAL);
                if (n < 0 && errno != EAGAIN) {
                    fail("sending failed", c);
                    break;
                }
                c.sent += std::max<ssize_t>(n, 0);
                if (c.sent == request.size()) {
                    epoll_event in{};
                    in.events = EPOLLIN;
                    in.data.ptr = &c;
                    ::epoll_ctl(poller, EPOLL_CTL_MOD, c.fd, &in);
                }
            }
            if (!(events[e].events & (EPOLLIN | EPOLLERR | EPOLLHUP)))
                continue;
            const ssize_t n = ::recv(c.fd, buffer, sizeof buffer, 0);
            if (n < 0 && errno == EAGAIN)
                continue;
            if (n <= 0) {
                fail("the server closed the connection", c);
                break;
            }
            c.reply.append(buffer, n);
            if (!whole(c.reply))
                continue;
            latencies.push_back(double(c.timer.nsecsElapsed()) / 1e6);
            if (!c.reply.contains("errno=\"0\"")) {
                fail("publish failed", c);
                break;
            }
            next(c);
        }
    }
    for (Client &c : all) {
        if (c.fd >= 0)
            ::close(c.fd);
    }
    if (poller >= 0)
        ::close(poller);
    if (failed)
        latencies.clear();
    return latencies;
}

// The CPU time a process has used so far, in microseconds (all its threads).
double cpuMicroseconds(qint64 pid)
{
    clockid_t clock;
    timespec used{};
    if (::clock_getcpuclockid(pid_t(pid), &clock) != 0 || ::clock_gettime(clock, &used) != 0)
        return 0;
    return double(used.tv_sec) * 1e6 + double(used.tv_nsec) / 1e3;
}

// The floor's publishes per second by back end and clients, for the server's run to be set
// beside.
std::map<std::pair<int, int>, double> g_floorRates;

// Publishes per second, p50 and p99; the rate.
double report(benchmark::State &state, std::vector<double> latencies, double seconds)
{
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double q) {
        return latencies.at(std::min(latencies.size() - 1, size_t(q * latencies.size())));
    };
    const double rate = double(latencies.size()) / seconds;
    state.counters["publishes_per_s"] = rate;
    state.counters["p50_ms"] = at(0.50);
    state.counters["p99_ms"] = at(0.99);
    return rate;
}

// Enough publishes per round for the rate to settle: at least 200, at least 20 per client.
int roundSize(int clients)
{
    return std::max(200, 20 * clients);
}

void BM_ServerPublish(benchmark::State &state)
{
    Site *s = site(int(state.range(0)));
    if (!s->error.isEmpty()) {
        state.SkipWithError(qPrintable(s->error));
        return;
    }
    const int clients = int(state.range(1));
    const QByteArray document = weekDocument();
    QList<QByteArray> requests;
    for (int i = 0; i < kHouseholds; ++i)
        requests.append(publishRequest(i, document));
    if (runLoad(s->port, kHouseholds, kHouseholds, requests).empty()) { // logins remembered, rows there
        state.SkipWithError("a publish failed");
        return;
    }
    std::vector<double> latencies;
    double seconds = 0;
    // Where the time goes: the server's CPU per publish, and that of the load generator.
    const double serverCpu = cpuMicroseconds(s->server.processId()), ownCpu = cpuMicroseconds(::getpid());
    for (auto _ : state) {
        QElapsedTimer wall;
        wall.start();
        const std::vector<double> round = runLoad(s->port, clients, roundSize(clients), requests);
        seconds += double(wall.nsecsElapsed()) / 1e9;
        if (round.empty()) {
            state.SkipWithError("a publish failed");
            return;
        }
        latencies.insert(latencies.end(), round.begin(), round.end());
        state.SetIterationTime(double(wall.nsecsElapsed()) / 1e9);
    }
    const double publishes = double(latencies.size());
    state.counters["server_cpu_us"] = (cpuMicroseconds(s->server.processId()) - serverCpu) / publishes;
    state.counters["loadgen_cpu_us"] = (cpuMicroseconds(::getpid()) - ownCpu) / publishes;
    const double rate = report(state, latencies, seconds);
    // How many times the server's rate the floor's was, when the floor ran first.
    if (const auto floor = g_floorRates.find({int(state.range(0)), clients}); floor != g_floorRates.end())
        state.counters["floor_x"] = floor->second / rate;
}

// The floor: the same week applied by the store itself, from as many threads as clients.
void BM_ServerPublish_Floor(benchmark::State &state)
{
    Site *s = site(int(state.range(0)));
    if (!s->error.isEmpty()) {
        state.SkipWithError(qPrintable(s->error));
        return;
    }
    const int threads = int(state.range(1));
    DiaryUpdate update;
    QString error;
    if (!readDiaryUpdate(weekDocument(), &update, &error)) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    // Threads that stay, each with its own connection, as the server's pool keeps them.
    QThreadPool pool;
    pool.setMaxThreadCount(threads);
    pool.setExpiryTimeout(-1);
    const auto round = [&](int total, std::vector<double> *latencies) {
        std::atomic<int> started = 0;
        std::atomic<bool> failed = false;
        std::vector<std::vector<double>> perThread(threads);
        for (int t = 0; t < threads; ++t) {
            pool.start([&, t] {
                ServerDiaryDB diary(*s->db);
                QString why;
                while (started++ < total && !failed) {
                    QElapsedTimer one;
                    one.start();
                    if (!diary.apply(s->members.at(t % kHouseholds), update, &why)) {
                        qWarning("apply failed: %s", qPrintable(why));
                        failed = true;
                    }
                    perThread[t].push_back(double(one.nsecsElapsed()) / 1e6);
                }
            });
        }
        pool.waitForDone();
        for (const auto &list : perThread)
            latencies->insert(latencies->end(), list.begin(), list.end());
        return !failed;
    };
    std::vector<double> latencies;
    if (!round(threads, &latencies)) { // connections made, rows there
        state.SkipWithError("a publish failed");
        return;
    }
    latencies.clear();
    double seconds = 0;
    const double ownCpu = cpuMicroseconds(::getpid());
    for (auto _ : state) {
        QElapsedTimer wall;
        wall.start();
        const bool ok = round(roundSize(threads), &latencies);
        seconds += double(wall.nsecsElapsed()) / 1e9;
        state.SetIterationTime(double(wall.nsecsElapsed()) / 1e9);
        if (!ok) {
            state.SkipWithError("a publish failed");
            return;
        }
    }
    state.counters["cpu_us"] = (cpuMicroseconds(::getpid()) - ownCpu) / double(latencies.size());
    g_floorRates[{int(state.range(0)), threads}] = report(state, latencies, seconds);
}

// One back end's runs together, so that neither works in the other's wake (PostgreSQL vacuums
// what a run left behind).
void arguments(benchmark::internal::Benchmark *b, int backend)
{
    b->ArgNames({"postgresql", "clients"});
    for (const int clients : {1, 10, 50})
        b->Args({backend, clients});
    b->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_ServerPublish_Floor)->Apply([](auto *b) { arguments(b, 0); });
BENCHMARK(BM_ServerPublish)->Apply([](auto *b) { arguments(b, 0); });
BENCHMARK(BM_ServerPublish_Floor)->Apply([](auto *b) { arguments(b, 1); });
BENCHMARK(BM_ServerPublish)->Apply([](auto *b) { arguments(b, 1); });

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (auto &s : g_sites) {
        if (s && s->db)
            s->db.reset();
        s.reset();
    }
    g_pg.stop();
    return 0;
}
