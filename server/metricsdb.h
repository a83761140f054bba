#pragma once

// Usage counts of the household's programs per day: starts, check-in changes and food diary
// changes, summed over every upload. Nothing about who or what is kept.

#include "server/publishreader.h"

#include <QDate>
#include <QList>

class ServerDB;

class MetricsDB
{
public:
    struct Day
    {
        QDate date;
        qint64 starts = 0;
        qint64 checkins = 0;
        qint64 foodDiary = 0;
    };

    explicit MetricsDB(ServerDB &db);

    // Adds the counts to their days in one transaction; false with a text, and nothing added.
    bool add(const QList<MetricsCount> &counts, QString *error);
    // Days from..to (inclusive) with any count, in order.
    QList<Day> days(const QDate &from, const QDate &to);

private:
    ServerDB &_db;
};
