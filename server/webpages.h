#pragma once

// The pages' HTML, made from plain values: what the routes read from the stores goes in, a whole
// document comes out. No store is touched here and every text from a member is escaped.
// Made in webdiarypages.cpp (day, calendar, check-ins), webplanpage.cpp and webmemberpages.cpp.

#include "server/diaryupdate.h"
#include "server/mealplandb.h"
#include "server/metricsdb.h"
#include "server/serverdiarydb.h"
#include "server/targetdb.h"
#include "server/webfoodsearch.h"
#include "server/webhtml.h"
#include "server/weightchart.h"

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>

#include <optional>

namespace WebPages {

struct Login
{
    QString name;
    QString message; // why the last attempt failed
    QString csrf;
    QString next; // where to go once logged in
};
QString login(const Login &view);

struct DayPage
{
    PageFrame frame;
    ServerDiaryDB::Day day;
    MemberTargets targets;
    std::optional<QDateTime> lastPublish;
};
QString day(const DayPage &view);

struct CalendarPage
{
    PageFrame frame;
    int year = 0, month = 0;
    QSet<QDate> logged;
    QList<ServerDiaryDB::Day> diary; // the days with foods or exercises, without water or check-in
    QDate today;
};
QString calendar(const CalendarPage &view);

struct CheckinsPage
{
    PageFrame frame;
    QString range; // the chooser's choice: "30", "90", "182", "365", "all", "custom"
    QDate from, to;
    QList<WeightPoint> weighings;     // in the range, with the trend from the first weighing ever
    QList<PublishedCheckin> checkins; // in the range, newest first
};
QString checkins(const CheckinsPage &view);

struct PlanPage
{
    PageFrame frame;
    bool editable = false; // the viewer's own plan
    QDate first, last;
    QList<PlannedFood> planned;
    // Adding: the search and its results, or the food chosen with its servings.
    QString query;
    QList<WebFoodSearch::Found> found;
    QString searchNote;
    QString searchUnavailable;
    std::optional<ReferenceFood> chosen;
    QDate addDate;
    QChar addMeal = QLatin1Char('B');
    int servingId = 0;
    QString quantity;
};
QString plan(const PlanPage &view);

struct TargetsPage
{
    PageFrame frame;
    bool editable = false;
    MemberTargets targets;
    QStringList entered; // what the form sent, shown again when it was refused
};
QString targets(const TargetsPage &view);

struct SharingPage
{
    PageFrame frame;
    QStringList others;  // every other member, by name
    QStringList viewers; // those the viewer shares with
};
QString sharing(const SharingPage &view);

struct StatsPage
{
    PageFrame frame;
    QDate from, to;
    QList<MetricsDB::Day> days; // by date, only days with counts
};
QString stats(const StatsPage &view);

QString logoutConfirm(const PageFrame &frame);
// 404, 403 and the like: a title and one sentence.
QString message(const PageFrame &frame, const QString &text);

// The meal letters B L D S in order, and their names on the pages.
inline const QString kMealLetters = QStringLiteral("BLDS");
QString mealName(QChar letter);

} // namespace WebPages
