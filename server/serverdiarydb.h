#pragma once

// The members' published diaries: what each publish from the program sent, kept per day, and
// read back for the web pages. A publish lands whole or not at all.

#include "server/diaryupdate.h"

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QStringList>
#include <QVariantList>

#include <functional>
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
    // The days from..to (inclusive) with foods or exercises, in order, with those alone.
    QList<Day> diaryDays(qint64 memberId, const QDate &from, const QDate &to);
    QList<PublishedCheckin> checkins(qint64 memberId, const QDate &from, const QDate &to);
    std::optional<QDateTime> lastPublish(qint64 memberId); // UTC

private:
    // Rows 0..rows-1 into the table's columns ("a, b, c"), each replacing the row with the same
    // keys (some of the columns) if there is one; rowValues appends a row's values in the
    // columns' order.
    bool insertRows(const QString &table, const QString &columns, const QString &keys, qsizetype rows,
                    const std::function<void(qsizetype row, QVariantList &values)> &rowValues,
                    QString *error);
    // The member's rows of the table on the dates.
    bool deleteDates(const QString &table, qint64 memberId, const QStringList &dates, QString *error);
    // Runs a statement over items in as few pieces as the back end's limit on bound values allows,
    // each kept prepared under name (what the statement starts with) and its size: sql(count)
    // makes the statement for count items, pieceValues(first, count, values) appends its values
    // (fixedValues, then valuesPerItem for each item).
    bool
    inPieces(qsizetype items, int valuesPerItem, int fixedValues, const QString &name,
             const std::function<QString(qsizetype count)> &sql,
             const std::function<void(qsizetype first, qsizetype count, QVariantList &values)> &pieceValues,
             QString *error);

    ServerDB &_db;
};
