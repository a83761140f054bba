#pragma once

// The members' published diaries: what each publish from the program sent, kept per day, and
// read back for the web pages. A publish lands whole or not at all.

#include "server/diaryupdate.h"

#include <QDate>
#include <QDateTime>
#include <QList>

#include <optional>

class ServerDB;

class ServerDiaryDB
{
public:
    struct Day
    {
        QDate date;
        QList<PublishedFood> foods;         // meal order B L D S, then as published
        QList<PublishedExercise> exercises; // as published
        std::optional<int> cups;
        std::optional<PublishedCheckin> checkin;
    };

    explicit ServerDiaryDB(ServerDB &db);

    // One transaction: each day's entries replaced, check-ins upserted or deleted, water set and
    // the member's last publish noted. False with a text when the update is refused or the
    // database fails; then nothing is changed.
    bool apply(qint64 memberId, const DiaryUpdate &update, QString *error);

    Day day(qint64 memberId, const QDate &date);
    // Days from..to (inclusive) with a food, exercise, check-in or water entry, in order.
    QList<QDate> loggedDays(qint64 memberId, const QDate &from, const QDate &to);
    QList<PublishedCheckin> checkins(qint64 memberId, const QDate &from, const QDate &to);
    std::optional<QDateTime> lastPublish(qint64 memberId); // UTC

private:
    ServerDB &_db;
};
