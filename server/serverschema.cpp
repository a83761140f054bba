#include "server/serverschema.h"

#include "common/lmassert.h"

#include <iterator>
#include <span>

using namespace Qt::StringLiterals;

namespace {

// {id}: the table's own key; {int}: 64-bit integers (timestamps, counts); {real}: 64-bit floats
// (PostgreSQL's REAL is 32 bits); {member}: a reference to a member whose rows go with them.
const char *const kBookkeeping = R"(CREATE TABLE IF NOT EXISTS schema_migrations (
        version {int} PRIMARY KEY,
        applied {int} NOT NULL))";

const char *const kMigration1[] = {
    kBookkeeping,
    R"(CREATE TABLE members (
        id {id},
        name TEXT NOT NULL UNIQUE,
        pw_hash TEXT NOT NULL,
        created {int} NOT NULL))",
    R"(CREATE TABLE diary_foods (
        id {id},
        member_id {member},
        date TEXT NOT NULL,
        meal TEXT NOT NULL CHECK (meal IN ('B', 'L', 'D', 'S')),
        position {int} NOT NULL,
        qty {real} NOT NULL,
        descr TEXT NOT NULL,
        serving TEXT NOT NULL,
        calories {real}, fat {real}, fiber {real}, protein {real}, carbs {real},
        saturated_fatty_acids {real}, cholesterol {real}, sodium {real}, sugars {real},
        calcium {real}))",
    "CREATE INDEX diary_foods_member_date ON diary_foods (member_id, date)",
    R"(CREATE TABLE diary_exercises (
        id {id},
        member_id {member},
        date TEXT NOT NULL,
        position {int} NOT NULL,
        duration {real} NOT NULL,
        descr TEXT NOT NULL,
        calories {real} NOT NULL))",
    "CREATE INDEX diary_exercises_member_date ON diary_exercises (member_id, date)",
    R"(CREATE TABLE checkins (
        member_id {member},
        date TEXT NOT NULL,
        weight {real}, chest {real}, hips {real}, thigh {real}, waist {real},
        note TEXT NOT NULL DEFAULT '',
        PRIMARY KEY (member_id, date)))",
    R"(CREATE TABLE waters (
        member_id {member},
        date TEXT NOT NULL,
        cups {int} NOT NULL,
        PRIMARY KEY (member_id, date)))",
    R"(CREATE TABLE targets (
        member_id {int} PRIMARY KEY REFERENCES members (id) ON DELETE CASCADE,
        energy {real}, fat {real}, carbs {real}, protein {real}, fiber {real}, sodium {real}))",
    R"(CREATE TABLE meal_plans (
        id {id},
        member_id {member},
        date TEXT NOT NULL,
        meal TEXT NOT NULL CHECK (meal IN ('B', 'L', 'D', 'S')),
        food_name TEXT NOT NULL,
        serv_name TEXT NOT NULL,
        qty {real} NOT NULL,
        calories {real} NOT NULL,
        carbohydrate {real} NOT NULL,
        fat {real} NOT NULL,
        fiber {real} NOT NULL,
        protein {real} NOT NULL))",
    "CREATE INDEX meal_plans_member_date ON meal_plans (member_id, date)",
    R"(CREATE TABLE shares (
        owner_id {member},
        viewer_id {int} NOT NULL REFERENCES members (id) ON DELETE CASCADE,
        PRIMARY KEY (owner_id, viewer_id)))",
    "CREATE INDEX shares_viewer ON shares (viewer_id)",
    R"(CREATE TABLE sessions (
        token_hash TEXT PRIMARY KEY,
        member_id {member},
        csrf TEXT NOT NULL,
        created {int} NOT NULL,
        expires {int} NOT NULL))",
    "CREATE INDEX sessions_member ON sessions (member_id)",
    R"(CREATE TABLE login_failures (
        key TEXT PRIMARY KEY,
        failures {int} NOT NULL,
        window_start {int} NOT NULL))",
    R"(CREATE TABLE metrics_days (
        date TEXT NOT NULL,
        kind TEXT NOT NULL CHECK (kind IN ('start', 'checkin', 'fooddiary')),
        count {int} NOT NULL,
        PRIMARY KEY (date, kind)))",
    R"(CREATE TABLE publishes (
        member_id {int} PRIMARY KEY REFERENCES members (id) ON DELETE CASCADE,
        last_publish {int} NOT NULL))",
};

// A publish replaces whole days, and a day is only ever read whole: each day's entries are kept
// in one row, as JSON (an array of objects named as in the program's document, in its order).
// The rows of the entry tables are carried over.
const char *const kMigration2[] = {
    R"(CREATE TABLE diary_days (
        member_id {member},
        date TEXT NOT NULL,
        foods TEXT NOT NULL,
        exercises TEXT NOT NULL,
        PRIMARY KEY (member_id, date)))",
    R"(INSERT INTO diary_days (member_id, date, foods, exercises)
        SELECT d.member_id, d.date,
            COALESCE(CAST((SELECT {json_agg}({json_object}(
                    'meal', meal, 'qty', qty, 'desc', descr, 'serving', serving,
                    'calories', calories, 'fat', fat, 'fiber', fiber, 'protein', protein,
                    'carbs', carbs, 'saturated_fatty_acids', saturated_fatty_acids,
                    'cholesterol', cholesterol, 'sodium', sodium, 'sugars', sugars,
                    'calcium', calcium){agg_order})
                FROM (SELECT * FROM diary_foods f WHERE f.member_id = d.member_id AND f.date = d.date
                      ORDER BY f.position) e) AS TEXT), '[]'),
            COALESCE(CAST((SELECT {json_agg}({json_object}('duration', duration, 'desc', descr,
                    'calories', calories){agg_order})
                FROM (SELECT * FROM diary_exercises x WHERE x.member_id = d.member_id AND x.date = d.date
                      ORDER BY x.position) e) AS TEXT), '[]')
        FROM (SELECT member_id, date FROM diary_foods
              UNION SELECT member_id, date FROM diary_exercises) d)",
    "DROP TABLE diary_foods",
    "DROP TABLE diary_exercises",
};

// A planned food's value may be unknown, as a reference food's can be: the five value columns
// lose NOT NULL (made anew, as SQLite cannot change a column's constraint).
const char *const kMigration3[] = {
    "ALTER TABLE meal_plans ADD COLUMN new_calories {real}",
    "ALTER TABLE meal_plans ADD COLUMN new_carbohydrate {real}",
    "ALTER TABLE meal_plans ADD COLUMN new_fat {real}",
    "ALTER TABLE meal_plans ADD COLUMN new_fiber {real}",
    "ALTER TABLE meal_plans ADD COLUMN new_protein {real}",
    R"(UPDATE meal_plans SET new_calories = calories, new_carbohydrate = carbohydrate, new_fat = fat,
        new_fiber = fiber, new_protein = protein)",
    "ALTER TABLE meal_plans DROP COLUMN calories",
    "ALTER TABLE meal_plans DROP COLUMN carbohydrate",
    "ALTER TABLE meal_plans DROP COLUMN fat",
    "ALTER TABLE meal_plans DROP COLUMN fiber",
    "ALTER TABLE meal_plans DROP COLUMN protein",
    "ALTER TABLE meal_plans RENAME COLUMN new_calories TO calories",
    "ALTER TABLE meal_plans RENAME COLUMN new_carbohydrate TO carbohydrate",
    "ALTER TABLE meal_plans RENAME COLUMN new_fat TO fat",
    "ALTER TABLE meal_plans RENAME COLUMN new_fiber TO fiber",
    "ALTER TABLE meal_plans RENAME COLUMN new_protein TO protein",
};

// Migrations in order: index 0 is version 1. Applied ones are never edited; a change is a new one.
const std::span<const char *const> kMigrations[] = {
    std::span<const char *const>(kMigration1),
    std::span<const char *const>(kMigration2),
    std::span<const char *const>(kMigration3),
};

struct Dialect
{
    const char *id, *integer, *real;
    // JSON made in SQL: an object of name-value pairs; an array of rows, in the order aggOrder
    // gives (SQLite keeps the order of the rows it is fed).
    const char *jsonObject, *jsonAgg, *aggOrder;
};

constexpr Dialect kSQLite{"INTEGER PRIMARY KEY", "INTEGER", "REAL", "json_object", "json_group_array", ""};
constexpr Dialect kPostgreSQL{"BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY",
                              "BIGINT",
                              "DOUBLE PRECISION",
                              "json_build_object",
                              "json_agg",
                              " ORDER BY position"};

QString render(const char *statement, const Dialect &dialect)
{
    QString sql = QString::fromUtf8(statement);
    sql.replace(u"{member}"_s, u"{int} NOT NULL REFERENCES members (id) ON DELETE CASCADE"_s);
    sql.replace(u"{id}"_s, QLatin1String(dialect.id));
    sql.replace(u"{int}"_s, QLatin1String(dialect.integer));
    sql.replace(u"{real}"_s, QLatin1String(dialect.real));
    sql.replace(u"{json_object}"_s, QLatin1String(dialect.jsonObject));
    sql.replace(u"{json_agg}"_s, QLatin1String(dialect.jsonAgg));
    sql.replace(u"{agg_order}"_s, QLatin1String(dialect.aggOrder));
    return sql;
}

} // namespace

namespace ServerSchema {

int latestVersion()
{
    return int(std::size(kMigrations));
}

QString bookkeeping(ServerDB::Kind kind)
{
    return render(kBookkeeping, kind == ServerDB::Kind::SQLite ? kSQLite : kPostgreSQL);
}

QStringList statements(int version, ServerDB::Kind kind)
{
    LM_ASSERT(version >= 1 && version <= latestVersion());
    const Dialect &dialect = kind == ServerDB::Kind::SQLite ? kSQLite : kPostgreSQL;
    QStringList list;
    for (const char *statement : kMigrations[version - 1])
        list.append(render(statement, dialect));
    return list;
}

} // namespace ServerSchema
