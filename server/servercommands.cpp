#include "server/servercommands.h"

#include "common/lmconstants.h"
#include "server/accountdb.h"
#include "server/protocolroutes.h"
#include "server/serverdb.h"
#include "server/serverlistener.h"
#include "server/serverlog.h"
#include "server/updatefeed.h"
#include "server/webroutes.h"

#include <QCoreApplication>
#include <QDir>
#include <QHash>
#include <QHttpServer>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QThreadPool>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <termios.h>
#include <unistd.h>

namespace ServerCommands {
namespace {

const char kUsage[] =
    "usage: tarnwell-server COMMAND [--data DIR] [--database URL] [ARGUMENTS]\n"
    "\n"
    "Commands:\n"
    "  serve [--listen ADDR:PORT] [--tls-cert FILE --tls-key FILE] [--no-metrics]\n"
    "        [--idle-timeout SECONDS]\n"
    "                      answer the programs and the web pages (default 127.0.0.1:8080;\n"
    "                      silent connections are closed after 30 s; SIGHUP reads the\n"
    "                      TLS files again)\n"
    "  user-add NAME       add a member; the password is asked for (or read from stdin)\n"
    "  user-list           the members and when they were added\n"
    "  user-remove NAME    remove a member and everything they published or planned\n"
    "  user-password NAME  set a member's password\n"
    "  publish-db FILE     offer a reference database to the programs as their update\n"
    "\n"
    "Options of every command:\n"
    "  --data DIR          data folder (default $XDG_DATA_HOME/tarnwell-server)\n"
    "  --database URL      sqlite:/path/file.sqlite or postgresql://[user[:password]@][host][:port]/db\n"
    "                      (default sqlite:DATA/diary.sqlite)\n"
    "\n"
    "Exit status: 0 done, 1 failed (nothing changed), 2 usage error.\n";

void print(FILE *stream, const QString &text)
{
    std::fputs(qUtf8Printable(text + QLatin1Char('\n')), stream);
    std::fflush(stream);
}

int fail(const QString &message)
{
    print(stderr, QStringLiteral("tarnwell-server: ") + message);
    return Failed;
}

int usage(const QString &message)
{
    print(stderr, QStringLiteral("tarnwell-server: ") + message + QStringLiteral(" (see --help)"));
    return Usage;
}

// The command's words: options with their values, flags, positionals.
struct Arguments
{
    QString command;
    QHash<QString, QString> options;
    QStringList flags;
    QStringList positionals;
    QString error;

    QString value(const char *name, const QString &fallback = QString()) const
    {
        return options.value(QLatin1String(name), fallback);
    }
    bool has(const char *name) const
    {
        return options.contains(QLatin1String(name)) || flags.contains(QLatin1String(name));
    }
};

Arguments parse(const QStringList &arguments, const QStringList &valueOptions, const QStringList &flagOptions)
{
    Arguments result;
    for (qsizetype i = 0; i < arguments.size() && result.error.isEmpty(); ++i) {
        const QString &arg = arguments.at(i);
        if (valueOptions.contains(arg)) {
            if (i + 1 >= arguments.size())
                result.error = QStringLiteral("option %1 needs a value").arg(arg);
            else
                result.options.insert(arg, arguments.at(++i));
        } else if (flagOptions.contains(arg)) {
            result.flags.append(arg);
        } else if (arg.startsWith(QLatin1String("--"))) {
            result.error = QStringLiteral("unknown option %1").arg(arg);
        } else if (result.command.isEmpty()) {
            result.command = arg;
        } else {
            result.positionals.append(arg);
        }
    }
    return result;
}

QString dataDir(const Arguments &args)
{
    if (args.has("--data"))
        return QDir(args.value("--data")).absolutePath();
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/tarnwell-server");
}

// The opened database, or none after the message is printed.
std::unique_ptr<ServerDB> openDatabase(const Arguments &args, const QString &data)
{
    if (!QDir().mkpath(data)) {
        fail(QStringLiteral("cannot make the data folder %1").arg(data));
        return nullptr;
    }
    auto db = std::make_unique<ServerDB>(args.value("--database", ServerDB::defaultUrl(data)));
    QString error;
    if (!db->open(&error)) {
        fail(QStringLiteral("cannot open the database %1: %2").arg(db->displayUrl(), error));
        return nullptr;
    }
    return db;
}

// One line from the terminal without echo, or from standard input when it is no terminal.
std::optional<QString> readLine(const QString &prompt, bool terminal)
{
    termios saved = {};
    if (terminal) {
        std::fputs(qUtf8Printable(prompt), stderr);
        std::fflush(stderr);
        tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    QByteArray line;
    char c = 0;
    bool ended = false;
    while (::read(STDIN_FILENO, &c, 1) == 1) {
        if (c == '\n') {
            ended = true;
            break;
        }
        line += c;
    }
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fputs("\n", stderr);
    }
    if (!ended && line.isEmpty())
        return std::nullopt;
    if (line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

std::optional<QString> readPassword(const QString &name)
{
    const bool terminal = ::isatty(STDIN_FILENO);
    const std::optional<QString> password = readLine(QStringLiteral("Password for %1: ").arg(name), terminal);
    if (!password || password->isEmpty()) {
        fail(QStringLiteral("no password given"));
        return std::nullopt;
    }
    if (terminal && readLine(QStringLiteral("The same again: "), true) != password) {
        fail(QStringLiteral("the passwords differ; nothing changed"));
        return std::nullopt;
    }
    return password;
}

int userCommand(const Arguments &args)
{
    const bool list = args.command == QLatin1String("user-list");
    if (args.positionals.size() != (list ? 0 : 1))
        return usage(list ? QStringLiteral("user-list takes no name")
                          : QStringLiteral("%1 needs one NAME").arg(args.command));
    const QString name = list ? QString() : args.positionals.constFirst();
    if (!list && !AccountDB::validName(name))
        return fail(QStringLiteral("'%1' is not a member name (1 to 64 letters, digits, '.', '_', '-', '@')")
                        .arg(name));
    const QString data = dataDir(args);
    const std::unique_ptr<ServerDB> db = openDatabase(args, data);
    if (!db)
        return Failed;
    AccountDB accounts(*db);
    QString error;
    if (list) {
        for (const Member &member : accounts.members())
            print(stdout, member.name + QLatin1Char('\t') + member.created.toString(Qt::ISODate));
        return Success;
    }
    if (args.command == QLatin1String("user-remove")) {
        if (!accounts.removeMember(name, &error))
            return fail(error);
        print(stderr, QStringLiteral("removed %1 and everything they published").arg(name));
        return Success;
    }
    const bool adding = args.command == QLatin1String("user-add");
    if (adding && accounts.member(name))
        return fail(QStringLiteral("%1 is a member already").arg(name));
    if (!adding && !accounts.member(name))
        return fail(QStringLiteral("no member %1").arg(name));
    const std::optional<QString> password = readPassword(name);
    if (!password)
        return Failed;
    if (!(adding ? accounts.addMember(name, *password, &error)
                 : accounts.setPassword(name, *password, &error)))
        return fail(error);
    print(stderr,
          adding ? QStringLiteral("added %1").arg(name) : QStringLiteral("password of %1 set").arg(name));
    return Success;
}

int publishDb(const Arguments &args)
{
    if (args.positionals.size() != 1)
        return usage(QStringLiteral("publish-db needs one FILE"));
    const QString data = dataDir(args);
    if (!QDir().mkpath(data))
        return fail(QStringLiteral("cannot make the data folder %1").arg(data));
    UpdateFeed feed(data);
    QString error;
    QDate created;
    if (!feed.publish(args.positionals.constFirst(), &error, &created))
        return fail(error + QStringLiteral("; nothing published"));
    print(stderr, QStringLiteral("published the reference database of %1 as %2")
                      .arg(created.toString(Qt::ISODate), feed.databaseFile()));
    return Success;
}

// Signals reach the event loop through a pipe, as a handler may only write a byte: SIGTERM and
// SIGINT end it, SIGHUP reads the TLS files again (a renewed certificate, without a restart).
int g_signalPipe[2] = {-1, -1};
constexpr char kStopByte = 1, kReloadByte = 2;

extern "C" void onSignal(int signal)
{
    const char byte = signal == SIGHUP ? kReloadByte : kStopByte;
    [[maybe_unused]] const ssize_t written = ::write(g_signalPipe[1], &byte, 1);
}

bool parseListen(const QString &text, QHostAddress *address, quint16 *port)
{
    const qsizetype colon = text.lastIndexOf(QLatin1Char(':'));
    if (colon <= 0)
        return false;
    QString host = text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    bool ok = false;
    const uint number = text.mid(colon + 1).toUInt(&ok);
    if (!ok || number > 65535 || !address->setAddress(host))
        return false;
    *port = quint16(number);
    return true;
}

int serve(const Arguments &args)
{
    if (!args.positionals.isEmpty())
        return usage(QStringLiteral("serve takes no arguments"));
    QHostAddress address;
    quint16 port = 0;
    if (!parseListen(args.value("--listen", QStringLiteral("127.0.0.1:8080")), &address, &port))
        return usage(QStringLiteral("--listen wants ADDRESS:PORT, such as 127.0.0.1:8080 or [::]:8080"));
    if (args.has("--tls-cert") != args.has("--tls-key"))
        return usage(QStringLiteral("--tls-cert and --tls-key go together"));
    ServerListener::Limits limits;
    if (args.has("--idle-timeout")) {
        bool ok = false;
        const int seconds = args.value("--idle-timeout").toInt(&ok);
        if (!ok || seconds < 1 || seconds > 3600)
            return usage(QStringLiteral("--idle-timeout wants seconds from 1 to 3600"));
        limits.idleMs = seconds * 1000;
    }

    const QString data = dataDir(args);
    const std::unique_ptr<ServerDB> db = openDatabase(args, data);
    if (!db)
        return Failed;
    QThreadPool pool;
    pool.setMaxThreadCount(2 * QThread::idealThreadCount());
    // The HTTP server owns the listener bound to it, and with it every connection.
    QHttpServer http;
    ServerListener &listener = *new ServerListener(&http);
    listener.setLimits(limits);
    QString error;
    if (args.has("--tls-cert") &&
        !listener.setTlsFiles(args.value("--tls-cert"), args.value("--tls-key"), &error))
        return fail(error);
    ProtocolRoutes::Options options;
    options.dataDir = data;
    options.storeMetrics = !args.has("--no-metrics");
    ProtocolRoutes protocol(*db, &pool, options);
    protocol.install(http);
    WebContext web;
    web.db = db.get();
    web.pool = &pool;
    web.referenceDb = UpdateFeed(data).referenceFile();
    web.bundledReferenceDb = QCoreApplication::applicationDirPath() + QStringLiteral("/content/static.db");
    addWebRoutes(http, web); // after the program's endpoints: the pages match only their own paths

    QObject::connect(
        &listener, &ServerListener::refused, &listener,
        [](int status, const QString &why, const QString &peer) {
            qCInfo(lcServer, "%s: %s%s", qUtf8Printable(peer.isEmpty() ? QStringLiteral("-") : peer),
                   qUtf8Printable(why), status ? qPrintable(QStringLiteral(" (%1)").arg(status)) : "");
        });
    if (!listener.listen(address, port))
        return fail(QStringLiteral("cannot listen on %1:%2: %3")
                        .arg(address.toString())
                        .arg(port)
                        .arg(listener.errorString()));
    listener.attach(&http);

    if (::pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return fail(QStringLiteral("cannot make the signal pipe"));
    QSocketNotifier signalNotifier(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &listener, [&listener, &args] {
        char bytes[8];
        bool stop = false, reload = false;
        for (ssize_t n; (n = ::read(g_signalPipe[0], bytes, sizeof bytes)) > 0;) {
            stop = stop || std::find(bytes, bytes + n, kStopByte) != bytes + n;
            reload = reload || std::find(bytes, bytes + n, kReloadByte) != bytes + n;
        }
        if (reload && !stop) {
            QString why;
            if (!args.has("--tls-cert"))
                qCInfo(lcServer, "SIGHUP: no TLS files to read again");
            else if (listener.setTlsFiles(args.value("--tls-cert"), args.value("--tls-key"), &why))
                qCInfo(lcServer, "TLS files read again; new connections use them");
            else // the files may be half written: the ones in use stay
                qCWarning(lcServer, "TLS files not read again, the old ones stay: %s", qUtf8Printable(why));
        }
        if (!stop || !listener.isListening())
            return;
        qCInfo(lcServer, "stopping");
        listener.close();
        // Answers under way are finished, for a few seconds at most.
        auto *waited = new QElapsedTimer;
        waited->start();
        auto *poll = new QTimer(&listener);
        QObject::connect(poll, &QTimer::timeout, &listener, [&listener, waited, poll] {
            if (listener.busyCount() == 0 || waited->elapsed() > 5000) {
                poll->stop();
                delete waited;
                QCoreApplication::quit();
            }
        });
        poll->start(20);
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(signal, &action, nullptr);

    const QString host = address.protocol() == QAbstractSocket::IPv6Protocol
                             ? QLatin1Char('[') + address.toString() + QLatin1Char(']')
                             : address.toString();
    print(stdout,
          QStringLiteral("tarnwell-server: listening on http://%1:%2/%3")
              .arg(host)
              .arg(listener.serverPort())
              .arg(listener.tlsEnabled() ? QStringLiteral(" (and TLS on the same port)") : QString()));
    qCInfo(lcServer, "database %s, data in %s", qUtf8Printable(db->displayUrl()), qUtf8Printable(data));
    const int status = QCoreApplication::exec();
    pool.waitForDone();
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::signal(signal, SIG_DFL);
    return status == 0 ? Success : Failed;
}

} // namespace

int run(const QStringList &arguments)
{
    if (arguments.contains(QLatin1String("--help")) || arguments.contains(QLatin1String("-h"))) {
        std::fputs(kUsage, stdout);
        return Success;
    }
    if (arguments.contains(QLatin1String("--version"))) {
        print(stdout, QStringLiteral("tarnwell-server %1").arg(QLatin1String(Lm::kVersion)));
        return Success;
    }
    const Arguments args =
        parse(arguments,
              {QStringLiteral("--data"), QStringLiteral("--database"), QStringLiteral("--listen"),
               QStringLiteral("--tls-cert"), QStringLiteral("--tls-key"), QStringLiteral("--idle-timeout")},
              {QStringLiteral("--no-metrics")});
    if (!args.error.isEmpty())
        return usage(args.error);
    if (args.command.isEmpty())
        return usage(QStringLiteral("no command given"));
    const bool serving = args.command == QLatin1String("serve");
    for (const char *option : {"--listen", "--tls-cert", "--tls-key", "--no-metrics", "--idle-timeout"}) {
        if (!serving && args.has(option))
            return usage(QStringLiteral("%1 is an option of serve").arg(QLatin1String(option)));
    }
    if (serving)
        return serve(args);
    if (args.command.startsWith(QLatin1String("user-")) &&
        QStringList{QStringLiteral("user-add"), QStringLiteral("user-list"), QStringLiteral("user-remove"),
                    QStringLiteral("user-password")}
            .contains(args.command))
        return userCommand(args);
    if (args.command == QLatin1String("publish-db"))
        return publishDb(args);
    return usage(QStringLiteral("unknown command '%1'").arg(args.command));
}

} // namespace ServerCommands
