#pragma once

// The meal plans members write on the web pages and the program downloads.

#include <QChar>
#include <QDate>
#include <QList>
#include <QString>

#include <optional>

class ServerDB;

struct PlannedFood
{
    qint64 id = -1;
    QDate date;
    QChar meal; // 'B', 'L', 'D' or 'S'
    QString foodName, servName;
    double qty = 0;
    // Per the planned quantity; empty when the food's value is not known.
    std::optional<double> calories, carbohydrate, fat, fiber, protein;
};

class MealPlanDB
{
public:
    explicit MealPlanDB(ServerDB &db);

    // from..to inclusive, by date, meal (B L D S), then as added.
    QList<PlannedFood> planned(qint64 memberId, const QDate &from, const QDate &to);
    // The new entry's id; -1 with a text when refused (bad date, meal or number) or on failure.
    qint64 add(qint64 memberId, const PlannedFood &food, QString *error);
    // True when the member had that entry and it is gone.
    bool remove(qint64 memberId, qint64 id);

private:
    ServerDB &_db;
};
