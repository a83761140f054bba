#include "server/mealplandb.h"

#include "server/serverdb.h"

#include <QSqlDatabase>
#include <QSqlQuery>

#include <cmath>

using namespace Qt::StringLiterals;

MealPlanDB::MealPlanDB(ServerDB &db)
    : _db(db)
{
}

QList<PlannedFood> MealPlanDB::planned(qint64 memberId, const QDate &from, const QDate &to)
{
    QList<PlannedFood> list;
    QSqlQuery query(_db.connection());
    if (!ServerDB::exec(
            query,
            u"SELECT id, date, meal, food_name, serv_name, qty, calories, carbohydrate, fat, fiber, "
            "protein FROM meal_plans WHERE member_id = ? AND date BETWEEN ? AND ? ORDER BY date, "
            "CASE meal WHEN 'B' THEN 0 WHEN 'L' THEN 1 WHEN 'D' THEN 2 ELSE 3 END, id"_s,
            {memberId, from.toString(Qt::ISODate), to.toString(Qt::ISODate)}))
        return list;
    while (query.next()) {
        PlannedFood food;
        food.id = query.value(0).toLongLong();
        food.date = QDate::fromString(query.value(1).toString(), Qt::ISODate);
        const QString meal = query.value(2).toString(); // one letter, by the table's check
        food.meal = meal.isEmpty() ? QChar() : meal.at(0);
        food.foodName = query.value(3).toString();
        food.servName = query.value(4).toString();
        food.qty = query.value(5).toDouble();
        std::optional<double> *const values[] = {&food.calories, &food.carbohydrate, &food.fat, &food.fiber,
                                                 &food.protein};
        for (int i = 0; i < int(std::size(values)); ++i)
            *values[i] = ServerDB::optionalReal(query.value(6 + i));
        list.append(food);
    }
    return list;
}

qint64 MealPlanDB::add(qint64 memberId, const PlannedFood &food, QString *error)
{
    if (!food.date.isValid() || food.date.year() < 1000 || food.date.year() > 9999) {
        *error = u"the planned food has no usable date"_s;
        return -1;
    }
    if (food.meal != 'B'_L1 && food.meal != 'L'_L1 && food.meal != 'D'_L1 && food.meal != 'S'_L1) {
        *error = u"the meal is not one of breakfast, lunch, dinner or snack"_s;
        return -1;
    }
    if (food.foodName.trimmed().isEmpty()) {
        *error = u"the planned food has no name"_s;
        return -1;
    }
    QVariantList values;
    for (const std::optional<double> &value :
         {std::optional(food.qty), food.calories, food.carbohydrate, food.fat, food.fiber, food.protein}) {
        if (value && (!std::isfinite(*value) || *value < 0)) {
            *error = u"the amounts of a planned food are numbers of zero or more"_s;
            return -1;
        }
        values.append(ServerDB::realOrNull(value));
    }
    qint64 id = -1;
    const bool ok = _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            if (!ServerDB::exec(query,
                                u"INSERT INTO meal_plans (member_id, date, meal, food_name, serv_name, qty, "
                                "calories, carbohydrate, fat, fiber, protein) "
                                "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) RETURNING id"_s,
                                QVariantList{memberId, food.date.toString(Qt::ISODate), QString(food.meal),
                                             food.foodName, food.servName.isNull() ? u""_s : food.servName} +
                                    values,
                                workError))
                return false;
            if (!query.next()) {
                *workError = u"the new entry's number did not come back"_s;
                return false;
            }
            id = query.value(0).toLongLong();
            query.finish(); // SQLite commits nothing while the statement is still open
            return true;
        },
        error);
    return ok ? id : -1;
}

bool MealPlanDB::remove(qint64 memberId, qint64 id)
{
    bool removed = false;
    QString error;
    _db.transaction(
        [&](QSqlDatabase &db, QString *workError) {
            QSqlQuery query(db);
            if (!ServerDB::exec(query, u"DELETE FROM meal_plans WHERE id = ? AND member_id = ?"_s,
                                {id, memberId}, workError))
                return false;
            removed = query.numRowsAffected() == 1;
            return true;
        },
        &error);
    return removed;
}
