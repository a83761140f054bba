// Arbitrary bytes as the user's userdata.db: start-up with its upgrades and triggers, then the
// reads a day of the desktop program makes. A file that is refused must be refused with a message.

#include "db/diarydb.h"
#include "db/lmsqldb.h"
#include "db/userdb.h"
#include "fuzzdiary.h"

#include <string>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    FuzzDiary::setUp(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QDir().mkpath(FuzzDiary::diaryFolder());
    for (const QString &name : QDir(FuzzDiary::diaryFolder()).entryList(QDir::Files))
        QFile::remove(FuzzDiary::diaryFolder() + name);
    if (!FuzzDiary::writeFile(FuzzDiary::diaryFolder() + QStringLiteral("userdata.db"), data, size))
        return 0;
    try {
        std::string error;
        if (LmSqlDb::startUp(error, true)) {
            const DiaryDB diary;
            for (const int user : UserDB::getUserIds()) {
                if (user < 0 || user >= 4096)
                    continue;
                diary.getDay(user, QStringLiteral("20260101"));
                diary.getDailyTotals(user, QStringLiteral("20260101"), QStringLiteral("20261231"), 0);
                UserDB::getTargets(user, QStringLiteral("20260101"));
                UserDB::getLatestCheckIn(user, QStringLiteral("20260101"));
                UserDB::setWater(user, QStringLiteral("20260101"), 3);
            }
        }
    } catch (const FuzzDiary::Ended &) {
        // refused with a fatal message: the program ends there, cleanly
    }
    LmSqlDb::shutDown();
    return 0;
}
