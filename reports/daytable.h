#pragma once

// A day of the diary as rows of text: each meal (snacks grouped as the profile chose) with its
// totals and its food entries, then the exercise with what each burned; the day's targets and
// where it stands against them. The window's day view and the printed diary both show this, so
// the two never format a figure differently.

#include "app/profilepreferences.h"
#include "db/userdb.h"
#include "model/daystanding.h"
#include "model/dbtypes.h"
#include "model/greenticks.h"

#include <QDate>
#include <QStringList>

#include <optional>

struct DayTable
{
    enum Column { NameColumn, QuantityColumn, ServingColumn, FirstNutrientColumn };
    enum Kind { MealRow, ExerciseGroupRow, FoodRow, ExerciseRow };
    struct Row
    {
        Kind kind;
        int id; // the entry's, or a meal row's meal
        QStringList texts;
        QString toolTip;
    };
    struct Group
    {
        Row row;
        QList<int> meals; // the meals whose entries it holds
        QList<Row> entries;
    };

    int userId = -1;
    QDate date;
    QList<int> columns;
    QStringList headers;
    DiaryDay diary; // the live entries only
    Targets targets;
    ProfilePreferences preferences;
    QList<Group> groups;

    // A profile's day with the given nutrient columns; without a profile, an empty table.
    static DayTable read(int userId, const QDate &date, const QList<int> &columns);
    // The nutrient columns a profile chose for its diary, or energy, carbohydrate, fat, protein.
    static QList<int> columnsOf(int userId);
    static const QList<int> kDefaultColumns;

    DayStanding standing() const;
    // The day's ticks; none without an energy target to earn them against.
    std::optional<GreenTicks> ticks() const;
    // "Monday: 1160 of 1250 kcal"; the figures in bold for rich text when asked.
    QString totalsText(bool bold) const;
};
