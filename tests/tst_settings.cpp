// Folders and application settings under private HOME and XDG folders.

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include <memory>

namespace {

// Loads a brand that defines just what the folders need; its id differs from the product name so
// that the paths show which of the two they use.
bool loadBrand(const QTemporaryDir &dir, bool compat)
{
    const QString xmlPath = dir.filePath(QStringLiteral("brand.xml"));
    QFile xml(xmlPath);
    if (!xml.open(QIODevice::WriteOnly))
        return false;
    xml.write(QByteArray("<brand><string id=\"brand_id\" value=\"Fernleaf\"/>") +
              "<bool id=\"datastore_compat\" value=\"" + (compat ? "true" : "false") + "\"/></brand>");
    xml.close();
    const QString archivePath = dir.filePath(QStringLiteral("brand.dat"));
    QFile archive(archivePath);
    if (!archive.open(QIODevice::WriteOnly))
        return false;
    {
        TarFileWriter writer(archive);
        if (!writer.addFile(xmlPath, QStringLiteral("brand.xml")))
            return false;
    }
    archive.close();
    return BrandEngine::instance().load(archivePath);
}

} // namespace

class TestSettings : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> _home;
    QTemporaryDir _brandDir;

private slots:
    void init()
    {
        _home = std::make_unique<TemporaryHome>();
        LmSettings::resetForTesting();
    }
    void cleanup()
    {
        LmSettings::resetForTesting();
        BrandEngine::release();
        _home.reset();
    }

    // A fixture that makes its next home before the last is gone: the newest holds, and the
    // person's own values come back only when the last home goes.
    void homeReplaced()
    {
        const QString first = _home->path();
        _home = std::make_unique<TemporaryHome>();
        QCOMPARE(qgetenv("XDG_DATA_HOME"), QFile::encodeName(_home->dataHome()));
        QVERIFY(!QDir(first).exists());
        _home.reset();
        QVERIFY(!qgetenv("HOME").startsWith(QFile::encodeName(first)));
        _home = std::make_unique<TemporaryHome>();
    }
    void folders_data();
    void folders();
    void appDataErrors_data();
    void appDataErrors();
    void userDatabaseFolder();
    void backupFolder();
    void resourceFolder();
    void tableDefaults();
    void typedRoundTrips();
    void settingsFile_data();
    void settingsFile();
    void handEditedFile();
};

void TestSettings::folders_data()
{
    QTest::addColumn<bool>("compat");
    QTest::addColumn<QString>("data");
    QTest::addColumn<QString>("versionOne");

    QTest::newRow("vendor layout") << false << QStringLiteral("tarnwell.org/Ambervale/Fernleaf/")
                                   << QStringLiteral("tarnwell.org/Ambervale/VersionOne/Default/");
    QTest::newRow("compatible layout") << true << QStringLiteral("Fernleaf/Ambervale/VersionTwo/Default/")
                                       << QStringLiteral("Fernleaf/Ambervale/VersionOne/Default/");
}

void TestSettings::folders()
{
    QFETCH(bool, compat);
    QFETCH(QString, data);
    QFETCH(QString, versionOne);
    QVERIFY(loadBrand(_brandDir, compat));

    const QString appData = _home->dataHome() + QLatin1Char('/');
    QCOMPARE(LmSettings::appDataPath(), appData);
    QCOMPARE(LmSettings::dataPath(), appData + data);
    QCOMPARE(LmSettings::versionOneDataPath(), appData + versionOne);
    QCOMPARE(LmSettings::userDatabasePath(), appData + data);
    QVERIFY(QDir(appData + data).exists());
    QVERIFY(QDir(appData + versionOne).exists());

    // Cached: a later change of the environment does not move the folders.
    qputenv("XDG_DATA_HOME", QFile::encodeName(_home->path() + QStringLiteral("/elsewhere")));
    QCOMPARE(LmSettings::dataPath(), appData + data);
}

void TestSettings::appDataErrors_data()
{
    QTest::addColumn<QString>("setting"); // what XDG_DATA_HOME and HOME hold
    QTest::addColumn<QString>("message"); // empty: accepted

    QTest::newRow("neither variable")
        << QStringLiteral("unset") << QStringLiteral("Could not locate Application Data directory (1)");
    QTest::newRow("empty value") << QStringLiteral("empty")
                                 << QStringLiteral("Could not locate Application Data directory (2)");
    QTest::newRow("1001 bytes") << QStringLiteral("long:1001")
                                << QStringLiteral("Could not locate Application Data directory (2)");
    QTest::newRow("1000 bytes") << QStringLiteral("long:1000") << QString();
    QTest::newRow("under a file") << QStringLiteral("file")
                                  << QStringLiteral("Could not locate Application Data directory (3)");
    QTest::newRow("HOME only") << QStringLiteral("home") << QString();
}

void TestSettings::appDataErrors()
{
    QFETCH(QString, setting);
    QFETCH(QString, message);
    QByteArray expectedPath;
    if (setting == QLatin1String("unset")) {
        qunsetenv("XDG_DATA_HOME");
        qunsetenv("HOME");
    } else if (setting == QLatin1String("empty")) {
        qputenv("XDG_DATA_HOME", QByteArray());
    } else if (setting.startsWith(QLatin1String("long:"))) {
        // A real, creatable path of the given length.
        QByteArray path = QFile::encodeName(_home->path()) + "/";
        const int length = setting.mid(5).toInt();
        while (path.size() < length)
            path += QByteArray(qMin<qsizetype>(200, length - path.size()), 'd') + "/";
        path.truncate(length);
        if (path.endsWith('/'))
            path[path.size() - 1] = 'e';
        qputenv("XDG_DATA_HOME", path);
        expectedPath = path + "/";
    } else if (setting == QLatin1String("file")) {
        QFile file(_home->path() + QStringLiteral("/plainfile"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        qputenv("XDG_DATA_HOME", QFile::encodeName(file.fileName() + QStringLiteral("/data")));
    } else if (setting == QLatin1String("home")) {
        qunsetenv("XDG_DATA_HOME");
        expectedPath = QFile::encodeName(_home->path()) + "/.local/share/";
    }

    if (message.isEmpty()) {
        QCOMPARE(LmSettings::appDataPath(), QFile::decodeName(expectedPath));
        QVERIFY(QDir(LmSettings::appDataPath()).exists());
    } else {
        LM_VERIFY_FATAL(LmSettings::appDataPath(), message);
    }
}

void TestSettings::userDatabaseFolder()
{
    QVERIFY(loadBrand(_brandDir, false));
    const QString data = LmSettings::dataPath();
    LmSettings::writeValue(QStringLiteral("/admin/userdbpath"), QStringLiteral("relative/db"));
    LmSettings::resetForTesting();

    QCOMPARE(LmSettings::userDatabasePath(), QDir::currentPath() + QStringLiteral("/relative/db/"));
    QCOMPARE(LmSettings::dataPath(), data); // the data folder itself does not move
}

void TestSettings::backupFolder()
{
    QVERIFY(loadBrand(_brandDir, false));
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    QVERIFY(documents.startsWith(_home->path()));

    // Blank after trimming: the default, written back.
    LmSettings::write(LmSettings::DataBackupPath, QStringLiteral("   "));
    const QString expected = documents + QStringLiteral("/Fernleaf Backups/");
    QCOMPARE(LmSettings::backupPath(), expected);
    QCOMPARE(LmSettings::readString(LmSettings::DataBackupPath), expected);
    QVERIFY(QFileInfo(expected).isDir());

    // A folder typed without its separator gets one.
    LmSettings::resetForTesting();
    LmSettings::write(LmSettings::DataBackupPath, QStringLiteral("/srv/backups"));
    QCOMPARE(LmSettings::backupPath(), QStringLiteral("/srv/backups/"));
}

void TestSettings::resourceFolder()
{
    LmSettings::setResourcePath(QStringLiteral("/opt/tarnwell"));
    QCOMPARE(LmSettings::resourcePath(), QStringLiteral("/opt/tarnwell/"));
    QCOMPARE(LmSettings::contentPath(), QStringLiteral("/opt/tarnwell/content/"));
    QCOMPARE(LmSettings::helpPath(), QStringLiteral("/opt/tarnwell/helphtml/"));
    LM_VERIFY_ASSERT(LmSettings::setResourcePath(QStringLiteral("/other")), "!resourcePath");

    // Read before being set: the executable's folder, and set once only from then on.
    LmSettings::resetForTesting();
    QCOMPARE(LmSettings::resourcePath(), QCoreApplication::applicationDirPath() + QLatin1Char('/'));
    LM_VERIFY_ASSERT(LmSettings::setResourcePath(QStringLiteral("/opt/tarnwell")), "!resourcePath");
}

void TestSettings::tableDefaults()
{
    QVERIFY(loadBrand(_brandDir, false));
    QCOMPARE(LmSettings::readInt(LmSettings::StaticDbUpdateInterval), 28);
    QCOMPARE(LmSettings::readBool(LmSettings::ReportsNutrientFiber), true);
    QCOMPARE(LmSettings::readBool(LmSettings::ReportsNutrientSugar), false);
    QCOMPARE(LmSettings::readString(LmSettings::PalmCondDoNotSyncDevices), QStringLiteral("0"));
    QCOMPARE(LmSettings::readString(LmSettings::ProxySettings), QString());
    QCOMPARE(QLatin1String(LmSettings::definition(LmSettings::DataBackupPath)->key),
             QLatin1String("dataBackupPath"));
    QVERIFY(!LmSettings::definition(LmSettings::Id(1)));
    LM_VERIFY_ASSERT(LmSettings::readBool(LmSettings::ProxySettings), "definition->type == type");
}

void TestSettings::typedRoundTrips()
{
    QVERIFY(loadBrand(_brandDir, false));
    LmSettings::write(LmSettings::StaticDbUpdateInterval, 7);
    LmSettings::write(LmSettings::ReportsNutrientFat, false);
    LmSettings::write(LmSettings::ReportsNutrientSugar, true);
    LmSettings::write(LmSettings::ProxySettings, QStringLiteral("pac http://proxy/wpad.dat"));

    // Another process (a fresh settings object) sees the values.
    LmSettings::resetForTesting();
    QCOMPARE(LmSettings::readInt(LmSettings::StaticDbUpdateInterval), 7);
    QCOMPARE(LmSettings::readBool(LmSettings::ReportsNutrientFat), false);
    QCOMPARE(LmSettings::readBool(LmSettings::ReportsNutrientSugar), true);
    QCOMPARE(LmSettings::readString(LmSettings::ProxySettings), QStringLiteral("pac http://proxy/wpad.dat"));

    LmSettings::remove(LmSettings::StaticDbUpdateInterval);
    LmSettings::remove(LmSettings::ReportsNutrientFat);
    QCOMPARE(LmSettings::readInt(LmSettings::StaticDbUpdateInterval), 28);
    QCOMPARE(LmSettings::readBool(LmSettings::ReportsNutrientFat), true);

    LmSettings::writeValue(QStringLiteral("/sync/uploadOnExit"), true);
    QVERIFY(LmSettings::contains(QStringLiteral("/sync/uploadOnExit")));
    LmSettings::removeValue(QStringLiteral("/sync/uploadOnExit"));
    QVERIFY(!LmSettings::contains(QStringLiteral("/sync/uploadOnExit")));
}

void TestSettings::settingsFile_data()
{
    QTest::addColumn<bool>("compat");
    QTest::addColumn<QString>("file");
    QTest::newRow("vendor layout") << false << QStringLiteral("tarnwell/Ambervale/Fernleaf.ini");
    QTest::newRow("compatible layout") << true << QStringLiteral("Fernleaf/Tarnwell.ini");
}

void TestSettings::settingsFile()
{
    QFETCH(bool, compat);
    QFETCH(QString, file);
    QVERIFY(loadBrand(_brandDir, compat));
    LmSettings::write(LmSettings::StaticDbLastUpdate, QStringLiteral("20261123"));
    const QString path = _home->configHome() + QLatin1Char('/') + file;
    QCOMPARE(LmSettings::settingsFileName(), path);

    QSettings ini(path, QSettings::IniFormat);
    QCOMPARE(ini.value(QStringLiteral("staticdb/lastUpdate")).toString(), QStringLiteral("20261123"));
    QFile raw(path);
    QVERIFY(raw.open(QIODevice::ReadOnly));
    QVERIFY(raw.readAll().contains("[staticdb]\nlastUpdate=20261123\n"));
}

void TestSettings::handEditedFile()
{
    QVERIFY(loadBrand(_brandDir, false));
    QFile file(LmSettings::settingsFileName());
    QVERIFY(QDir().mkpath(QFileInfo(file).path()));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\nproxySettings=http=a:1,https=b:2\n"
               "[staticdb]\nupdateInterval=often\n"
               "[reports]\nnutrient\\sugar=1\nselectedReport= 3\n");
    file.close();
    LmSettings::resetForTesting();

    QCOMPARE(LmSettings::readString(LmSettings::ProxySettings), QStringLiteral("http=a:1,https=b:2"));
    QCOMPARE(LmSettings::readInt(LmSettings::StaticDbUpdateInterval), 28);
    QCOMPARE(LmSettings::readBool(LmSettings::ReportsNutrientSugar), true);
    QCOMPARE(LmSettings::readInt(LmSettings::ReportsSelectedReport), 3);
}

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
