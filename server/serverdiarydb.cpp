#include "server/serverdiarydb.h"

#include "server/serverdb.h"

ServerDiaryDB::ServerDiaryDB(ServerDB &db)
    : _db(db)
{
}

bool ServerDiaryDB::apply(qint64, const DiaryUpdate &, QString *error)
{
    *error = QStringLiteral("storage not built yet");
    return false;
}

ServerDiaryDB::Day ServerDiaryDB::day(qint64, const QDate &date)
{
    Day day;
    day.date = date;
    return day;
}

QList<QDate> ServerDiaryDB::loggedDays(qint64, const QDate &, const QDate &)
{
    return {};
}

QList<PublishedCheckin> ServerDiaryDB::checkins(qint64, const QDate &, const QDate &)
{
    return {};
}

std::optional<QDateTime> ServerDiaryDB::lastPublish(qint64)
{
    return std::nullopt;
}
