// Arbitrary bytes as a backup archive restored over a diary in use: whatever the archive holds,
// the restore ends with a message or a diary that starts, and the diary is never lost.

#include "db/databackup.h"
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
    const QString archive = FuzzDiary::home().path() + QStringLiteral("/backup.tar");
    if (!FuzzDiary::writeFile(archive, data, size))
        return 0;
    try {
        std::string error;
        if (!LmSqlDb::startUp(error, true))
            std::abort(); // the diary before the restore always starts
        DataBackup::restore(archive);
        // Restored or not, a diary runs and reads.
        if (!LmSqlDb::exists())
            std::abort();
        UserDB::getUsers();
    } catch (const FuzzDiary::Ended &) {
    }
    LmSqlDb::shutDown();
    return 0;
}
