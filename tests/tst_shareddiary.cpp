// The diary shared by processes: the tool run many times at once, as cron jobs, scripts and a
// person at the desktop do. Every command that says it stored something did, and every id it
// prints is the row it wrote.

#include "testsupport.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <memory>
#include <unistd.h>
#include <vector>

class TestSharedDiary : public QObject
{
    Q_OBJECT

    TemporaryHome _home;

    struct Run
    {
        QStringList arguments;
        std::unique_ptr<QProcess> process;
        int status() const { return process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1; }
        QString out() const { return QString::fromUtf8(process->readAllStandardOutput()).trimmed(); }
    };

    // Starts every command at once and waits for all of them.
    std::vector<Run> runTogether(const QList<QStringList> &commands)
    {
        std::vector<Run> runs;
        for (const QStringList &arguments : commands) {
            Run run{arguments, std::make_unique<QProcess>()};
            run.process->setProcessEnvironment(_home.environment());
            run.process->start(binDir() + QStringLiteral("/tarnwell-cli"), arguments);
            runs.push_back(std::move(run));
        }
        for (Run &run : runs)
            run.process->waitForFinished(60000);
        return runs;
    }

    QStringList column(const QString &sql)
    {
        QStringList values;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
            db.setDatabaseName(_home.diaryFolder() + QStringLiteral("userdata.db"));
            if (db.open()) {
                QSqlQuery query(sql, db);
                while (query.next())
                    values.append(query.value(0).toString());
            }
        }
        QSqlDatabase::removeDatabase(QStringLiteral("check"));
        return values;
    }

private slots:
    void initTestCase();
    void writersAtOnce();
    void readOnlyDataFolder();
};

void TestSharedDiary::initTestCase()
{
    const std::vector<Run> runs = runTogether(
        {{QStringLiteral("profile-add"), QStringLiteral("--name=Ann"), QStringLiteral("--sex=female"),
          QStringLiteral("--born=1985-04-02"), QStringLiteral("--height=168"), QStringLiteral("--weight=61")}});
    QCOMPARE(runs.front().status(), 0);
}

void TestSharedDiary::writersAtOnce()
{
    // Each command is told apart by what it writes: the quantity, the day or the name.
    QList<QStringList> commands;
    for (int i = 1; i <= 8; ++i)
        commands.append({QStringLiteral("log-food"), QStringLiteral("2026-01-10"), QStringLiteral("lunch"),
                         QStringLiteral("9003"), QStringLiteral("--qty"), QString::number(i)});
    for (int i = 1; i <= 4; ++i) {
        const QString day = QStringLiteral("2026-02-%1").arg(i, 2, 10, QLatin1Char('0'));
        commands.append({QStringLiteral("checkin"), day, QStringLiteral("--weight"), QString::number(60 + i)});
        commands.append({QStringLiteral("water"), day, QString::number(i)});
        commands.append({QStringLiteral("food-add"), QStringLiteral("--name=Bar %1").arg(i),
                         QStringLiteral("--serving=bar"), QStringLiteral("--calories=%1").arg(100 + i)});
    }
    const std::vector<Run> runs = runTogether(commands);

    QSet<QString> entryIds;
    QSet<QString> foodIds;
    for (const Run &run : runs) {
        QVERIFY2(run.status() == 0, qPrintable(run.arguments.join(u' ') + QLatin1Char(' ') +
                                               QString::fromUtf8(run.process->readAllStandardError())));
        const QString command = run.arguments.constFirst();
        if (command == QLatin1String("log-food")) {
            // The id printed is the entry this command wrote, and no other command's.
            const QString id = run.out();
            QVERIFY2(!entryIds.contains(id), qPrintable(id));
            entryIds.insert(id);
            QCOMPARE(column(QStringLiteral("SELECT size FROM food_diary WHERE food_id = %1").arg(id)),
                     QStringList{run.arguments.constLast()});
        } else if (command == QLatin1String("food-add")) {
            const QString id = run.out();
            QVERIFY(!foodIds.contains(id));
            foodIds.insert(id);
            QCOMPARE(column(QStringLiteral("SELECT name FROM custom_foods WHERE food_id = %1").arg(id)),
                     QStringList{run.arguments.at(1).mid(7)});
        }
    }
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM food_diary WHERE date = '20260110'")),
             QStringList{QStringLiteral("8")});
    QCOMPARE(column(QStringLiteral("SELECT group_concat(weight) FROM (SELECT weight FROM user_checkins "
                                   "WHERE date LIKE '202602%' ORDER BY date)")),
             QStringList{QStringLiteral("61,62,63,64")});
    QCOMPARE(column(QStringLiteral("SELECT group_concat(cups) FROM (SELECT cups FROM water_diary "
                                   "WHERE date LIKE '202602%' ORDER BY date)")),
             QStringList{QStringLiteral("1,2,3,4")});

    // Each removal takes away the entry it names, with its neighbours still being written.
    QList<QStringList> removals;
    const QStringList ids(entryIds.cbegin(), entryIds.cend());
    for (const QString &id : ids.mid(0, 4))
        removals.append({QStringLiteral("remove"), QStringLiteral("food"), id});
    for (int i = 0; i < 4; ++i)
        removals.append({QStringLiteral("log-food"), QStringLiteral("2026-01-11"), QStringLiteral("dinner"),
                         QStringLiteral("9003")});
    for (const Run &run : runTogether(removals))
        QCOMPARE(run.status(), 0);
    QStringList deleted = column(QStringLiteral("SELECT food_id FROM food_diary WHERE status = 2"));
    QStringList expected = ids.mid(0, 4);
    deleted.sort();
    expected.sort();
    QCOMPARE(deleted, expected);
    QCOMPARE(column(QStringLiteral("SELECT COUNT(*) FROM food_diary WHERE date = '20260111' AND status = 1")),
             QStringList{QStringLiteral("4")});
}

void TestSharedDiary::readOnlyDataFolder()
{
    // Permissions bind an ordinary account only: as root the tool runs as nobody, who owns the
    // diary but may not write into its folder.
    const bool root = ::geteuid() == 0;
    const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
    if (root && setpriv.isEmpty())
        QSKIP("setpriv is needed to run the tool as another account");
    const QString folder = _home.diaryFolder();
    QDir(_home.path()).mkpath(QStringLiteral("nobody-run"));
    const QString runtime = _home.path() + QStringLiteral("/nobody-run");
    if (root) {
        for (QString path = folder; path.startsWith(_home.path()) && path.size() > 1;
             path = QFileInfo(path).path())
            QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::ExeOther | QFileDevice::ReadOther);
        QFile::setPermissions(_home.configHome(), QFile::permissions(_home.configHome()) | QFileDevice::ExeOther |
                                                      QFileDevice::ReadOther | QFileDevice::WriteOther);
        // nobody's own data folders, down to the diary's, which it may not write into.
        for (QString path = folder + QStringLiteral("userdata.db"); path.startsWith(_home.dataHome());
             path = QFileInfo(path).path())
            QVERIFY(::chown(QFile::encodeName(path).constData(), 65534, 65534) == 0);
        QVERIFY(::chown(QFile::encodeName(runtime).constData(), 65534, 65534) == 0);
    }
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                      QFileDevice::ExeOther);
    const auto run = [&](const QStringList &arguments) {
        QProcess tool;
        QProcessEnvironment env = _home.environment();
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
        tool.setProcessEnvironment(env);
        if (root)
            tool.start(setpriv, QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                                            QStringLiteral("--clear-groups"), binDir() + QStringLiteral("/tarnwell-cli")} +
                                    arguments);
        else
            tool.start(binDir() + QStringLiteral("/tarnwell-cli"), arguments);
        tool.waitForFinished(60000);
        return QPair<int, QString>(tool.exitCode(), QString::fromUtf8(tool.readAllStandardError()));
    };
    const auto day = run({QStringLiteral("day"), QStringLiteral("2026-02-01")});
    const auto water = run({QStringLiteral("water"), QStringLiteral("2026-02-01"), QStringLiteral("7")});
    QFile::setPermissions(folder, QFile::permissions(folder) | QFileDevice::WriteOwner);
    QVERIFY2(day.first == 0, qPrintable(day.second));
    QCOMPARE(water.first, 1);
    QVERIFY2(water.second.startsWith(QStringLiteral("tarnwell-cli: the diary could not be written (")),
             qPrintable(water.second));
    QCOMPARE(column(QStringLiteral("SELECT cups FROM water_diary WHERE date = '20260201'")),
             QStringList{QStringLiteral("1")});
}

QTEST_GUILESS_MAIN(TestSharedDiary)
#include "tst_shareddiary.moc"
