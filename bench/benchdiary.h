#pragma once

// The ten-year household diary the benchmarks share: 4 profiles x 10 years, ~20 foods and 2
// exercises a day each, weekly check-ins, daily water, triggers for 3 devices. Generated once into
// /tmp and reused by later runs.

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "db/diarydb.h"
#include "db/lmsqldb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSqlQuery>

#include <cstdio>
#include <string>

namespace BenchDiary {

inline const QString kHome = QStringLiteral("/tmp/tarnwell-bench-diary");
inline const QDate kFirstDay(2016, 1, 1);
constexpr int kYears = 10;
constexpr int kProfiles = 4;


inline QString databaseFile()
{
    return LmSettings::userDatabasePath() + QStringLiteral("userdata.db");
}

inline bool writeBrand()
{
    QFile xml(kHome + QStringLiteral("/brand.xml"));
    if (!xml.open(QIODevice::WriteOnly))
        return false;
    xml.write("<brand><string id=\"brand_id\" value=\"bench\"/><bool id=\"datastore_compat\" value=\"false\"/>"
              "<bool id=\"feature.family\" value=\"true\"/>"
              "<string id=\"publish_auth_url\" value=\"http://localhost/publish\"/></brand>");
    xml.close();
    QFile archive(kHome + QStringLiteral("/brand.dat"));
    if (!archive.open(QIODevice::WriteOnly))
        return false;
    TarFileWriter writer(archive);
    return writer.addFile(xml.fileName(), QStringLiteral("brand.xml"));
}

inline void generate()
{
    LmSqlDb::instance()->prepare(QStringLiteral("INSERT INTO userdata_sync_devices (id, name) VALUES (3, 'tablet')"))->exec();
    LmSqlDb::shutDown();
    std::string error;
    LmSqlDb::startUp(error, true); // triggers for the third device

    QRandomGenerator random(42);
    const DiaryDB diary;
    LmSqlDb::begin();
    for (int p = 0; p < kProfiles; ++p) {
        UserProfile profile;
        profile.name = QStringLiteral("Member %1").arg(p + 1);
        profile.dob = QStringLiteral("19800101");
        const int user = UserDB::createUser(profile, UserSettings(), 170, DateConversion::fromQDate(kFirstDay));
        for (QDate date = kFirstDay; date < kFirstDay.addYears(kYears); date = date.addDays(1)) {
            const QString day = DateConversion::fromQDate(date);
            for (int i = 0; i < 20; ++i) {
                FoodDiaryItem item(true);
                item.user_id = user;
                item.date = day;
                item.meal = 1 + i % 6;
                item.ref_id = 1000 + int(random.bounded(8000));
                item.food_name = QStringLiteral("Food number %1").arg(item.ref_id);
                item.serv_name = QStringLiteral("1 cup");
                for (int n = 0; n < kNutrientCount; ++n)
                    item.setNutrient(n, float(random.bounded(200.0)));
                diary.addFoodEntry(item);
            }
            for (int i = 0; i < 2; ++i) {
                ExerciseDiaryItem walk;
                walk.user_id = user;
                walk.date = day;
                walk.duration = 30;
                walk.rate = 4.5f;
                walk.name = QStringLiteral("Walking");
                diary.addExerciseEntry(walk);
            }
            UserDB::setWater(user, day, 6);
            if (date.dayOfWeek() == 1) {
                CheckIn checkIn;
                checkIn.date = day;
                checkIn.weight = 70 + random.bounded(5.0);
                UserDB::setCheckIn(user, checkIn);
            }
        }
    }
    LmSqlDb::commit();
}


// Loads the brand, starts the database and generates the diary when it is not there yet. Returns
// the first profile's id, or -1.
inline int open()
{
    qputenv("XDG_DATA_HOME", QFile::encodeName(kHome + QStringLiteral("/data")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(kHome + QStringLiteral("/config")));
    QDir().mkpath(kHome);
    if (!writeBrand() || !BrandEngine::instance().load(kHome + QStringLiteral("/brand.dat")))
        return -1;
    LmSettings::setResourcePath(QStringLiteral(TARNWELL_BIN_DIR));
    const bool fresh = !QFile::exists(databaseFile());
    std::string error;
    if (!LmSqlDb::startUp(error, true)) {
        std::fprintf(stderr, "start-up failed: %s\n", error.c_str());
        return -1;
    }
    if (fresh || UserDB::numUsers() < kProfiles) {
        std::fprintf(stderr, "generating the ten-year diary in %s ...\n", qUtf8Printable(kHome));
        generate();
    }
    return UserDB::getUserIds().constFirst();
}

} // namespace BenchDiary
