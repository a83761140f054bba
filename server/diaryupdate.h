#pragma once
// One member's publish, as read from the program's document; what the stores apply and return.
#include <QDate>
#include <QList>
#include <QString>
#include <array>
#include <optional>

// The food values the program sends, in its attribute order; the names are also the columns.
inline constexpr std::array<QLatin1StringView, 10> kFoodValueNames = {
    QLatin1StringView("calories"),    QLatin1StringView("fat"),    QLatin1StringView("fiber"),
    QLatin1StringView("protein"),     QLatin1StringView("carbs"),  QLatin1StringView("saturated_fatty_acids"),
    QLatin1StringView("cholesterol"), QLatin1StringView("sodium"), QLatin1StringView("sugars"),
    QLatin1StringView("calcium")};

struct PublishedFood
{
    QChar meal; // 'B', 'L', 'D' or 'S' (the group's meal letter)
    double qty = 0;
    QString desc;
    QString serving;
    std::array<std::optional<double>, 10> values; // absent attribute: unknown
};

struct PublishedExercise
{
    double duration = 0; // minutes
    QString desc;
    double calories = 0;
};

// Replaces the day's entries; both lists empty clears the day.
struct PublishedDay
{
    QDate date;
    QList<PublishedFood> foods;
    QList<PublishedExercise> exercises;
};

// Only a date (no value, no note): the day's check-in is deleted.
struct PublishedCheckin
{
    QDate date;
    std::optional<double> weight, chest, hips, thigh, waist;
    QString note;
    bool isDeletion() const { return !weight && !chest && !hips && !thigh && !waist && note.isEmpty(); }
};

struct PublishedWater
{
    QDate date;
    int cups = 0;
};

struct DiaryUpdate
{
    QList<PublishedDay> days;
    QList<PublishedCheckin> checkins; // in document order
    QList<PublishedWater> waters;
    int itemCount() const; // foods + exercises over all days
};
