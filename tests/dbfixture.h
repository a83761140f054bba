#pragma once

// A private home with a tiny brand and the built template database in a resource folder, for the
// suites that use the user database. start() runs the real start-up (copy, upgrade, triggers).

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "common/lmmessage.h"
#include "db/lmsqldb.h"
#include "db/newprofile.h"
#include "db/userdb.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QSqlQuery>
#include <QStringList>

#include <memory>
#include <string>

class DbFixture
{
public:
    // Makes the home, loads a brand (brand_id "testbrand", the family feature as asked) and puts
    // the template into the resource folder. False when any step fails.
    bool prepare(bool family = true)
    {
        LmSettings::resetForTesting();
        _home = std::make_unique<TemporaryHome>();
        if (!_home->isValid() || !loadBrand(family) || !QDir().mkpath(path(QStringLiteral("resources"))))
            return false;
        if (!QFile::copy(binDir() + QStringLiteral("/userdata.db"),
                         path(QStringLiteral("resources/userdata.db"))))
            return false; // build the target userdata_db first
        LmSettings::setResourcePath(path(QStringLiteral("resources/")));
        return true;
    }

    // (Re)loads the test brand, with more elements when asked.
    bool loadBrand(bool family, const QByteArray &extraXml = QByteArray())
    {
        BrandEngine::release();
        const QString xmlPath = path(QStringLiteral("brand.xml"));
        QFile xml(xmlPath);
        if (!xml.open(QIODevice::WriteOnly))
            return false;
        xml.write(QByteArray("<brand><string id=\"brand_id\" value=\"testbrand\"/>"
                             "<bool id=\"datastore_compat\" value=\"false\"/>"
                             "<bool id=\"feature.family\" value=\"") +
                  (family ? "true" : "false") + "\"/>" + extraXml + "</brand>");
        xml.close();
        QFile archive(path(QStringLiteral("brand.dat")));
        if (!archive.open(QIODevice::WriteOnly))
            return false;
        {
            TarFileWriter writer(archive);
            if (!writer.addFile(xmlPath, QStringLiteral("brand.xml")))
                return false;
        }
        archive.close();
        return BrandEngine::instance().load(archive.fileName());
    }

    // prepare() and the database start-up with the sync triggers.
    bool start(bool family = true)
    {
        std::string error;
        if (!prepare(family) || !LmSqlDb::startUp(error, true)) {
            qWarning("start-up failed: %s", error.c_str());
            return false;
        }
        return true;
    }

    // start() with the programs' own brand and the reference database, as the windows want them.
    bool startWithReferenceData()
    {
        if (!start())
            return false;
        BrandEngine::release();
        return BrandEngine::instance().load(binDir() + QStringLiteral("/brand.dat")) &&
               QDir().mkpath(LmSettings::contentPath()) &&
               QFile::copy(binDir() + QStringLiteral("/content/static.db"),
                           LmSettings::contentPath() + QStringLiteral("static.db"));
    }

    // Ann (female, born 1985-04-02, 168 cm, 61.5 kg), made on a day with the plan's first
    // targets; her id.
    static int makeAnn(const QDate &made = QDate::currentDate())
    {
        NewProfile profile;
        profile.name = QStringLiteral("Ann");
        profile.sex = 1;
        profile.dob = QStringLiteral("19850402");
        profile.height = 168;
        profile.weight = 61.5;
        return createProfile(profile, made.toString(QStringLiteral("yyyyMMdd")));
    }

    // start(), a brand with the web texts and the given URLs, and a profile "Ann" with the web
    // account ann / secret; the profile's id, -1 on failure.
    int startWithWebProfile(const QByteArray &urlsXml)
    {
        if (!start() || !loadBrand(true, "<string id=\"app_name_short\" value=\"Tarnwell\"/>"
                                         "<string id=\"web_address\" value=\"diary.example\"/>" +
                                             urlsXml))
            return -1;
        UserProfile profile;
        profile.name = QStringLiteral("Ann");
        profile.dob = QStringLiteral("19850402");
        UserSettings settings;
        settings.web_username = QStringLiteral("ann");
        settings.web_password = QStringLiteral("secret");
        return UserDB::createUser(profile, settings, 168, QStringLiteral("20260101"));
    }

    // Shuts the database down and starts it again in the same home.
    bool restart()
    {
        LmSqlDb::shutDown();
        std::string error;
        return LmSqlDb::startUp(error, true);
    }

    void stop()
    {
        LmSqlDb::shutDown();
        BrandEngine::release();
        LmSettings::resetForTesting();
        _home.reset();
    }

    QString home() const { return _home->path(); }
    QString path(const QString &name) const { return _home->path() + QLatin1Char('/') + name; }
    QString databasePath() const { return LmSettings::userDatabasePath() + QStringLiteral("userdata.db"); }

private:
    std::unique_ptr<TemporaryHome> _home;
};

// Probes shared by the database suites.
namespace DbTest {

// The first column of every row of a statement on the open database, as text ("NULL" for null).
inline QStringList column(const QString &sql)
{
    QStringList values;
    LmSqlQueryPtr query = LmSqlDb::instance()->prepare(sql);
    if (query->exec()) {
        while (query->next())
            values.append(query->value(0).isNull() ? QStringLiteral("NULL") : query->value(0).toString());
    }
    return values;
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

// Records the message boxes raised while it exists, as "caption: text".
class RecordedBoxes : public Lm::MessagePresenter
{
public:
    RecordedBoxes() { _previous = Lm::setMessagePresenter(this); }
    ~RecordedBoxes() override { Lm::setMessagePresenter(_previous); }
    void showMessage(Lm::MessageKind, const QString &caption, const QString &text) override
    {
        boxes.append(caption + QStringLiteral(": ") + text);
    }
    bool askQuestion(const QString &, const QString &, bool defaultYes) override { return defaultYes; }

    QStringList boxes;

private:
    Lm::MessagePresenter *_previous = nullptr;
};

} // namespace DbTest
