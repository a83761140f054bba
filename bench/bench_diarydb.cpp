// The diary store on a ten-year household diary, each figure beside the floor: the same SQL run
// through SQLite's C interface on the same file, with no store in between.
//
// The diary (4 profiles x 10 years, ~20 foods and 2 exercises a day each, weekly check-ins, daily
// water, triggers for 3 devices) is generated once into /tmp and reused by later runs.

#include "benchdiary.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSqlQuery>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <string>

namespace {

int g_user = 1;

// The floor's connection: SQLite itself on the same file.
sqlite3 *g_raw = nullptr;

const char *kYearTotals =
    "SELECT date, SUM(calories), SUM(fat), SUM(fiber), SUM(protein), SUM(carb), SUM (saturated_fat), "
    "SUM(cholesterol), SUM(sodium), sum(sugar), sum(calcium) FROM food_diary WHERE user_id = ? AND status <> ? AND "
    "date >= ? AND date <= ? GROUP BY date";
const char *kBurned = "SELECT date, SUM(rate*duration) FROM exer_diary WHERE user_id = ? AND status <> ? AND date >= ? "
                      "AND date <= ? GROUP BY date";

void rawTotals(const char *from, const char *to)
{
    QMap<QString, DailyTotal> totals;
    for (const char *sql : {kYearTotals, kBurned}) {
        sqlite3_stmt *statement = nullptr;
        sqlite3_prepare_v2(g_raw, sql, -1, &statement, nullptr);
        sqlite3_bind_int(statement, 1, g_user);
        sqlite3_bind_int(statement, 2, 2);
        sqlite3_bind_text(statement, 3, from, -1, SQLITE_STATIC);
        sqlite3_bind_text(statement, 4, to, -1, SQLITE_STATIC);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            DailyTotal &total =
                totals[QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, 0)))];
            const int columns = sqlite3_column_count(statement);
            for (int i = 1; i < columns; ++i)
                total.nutrients[size_t(i - 1)] = sqlite3_column_double(statement, i);
        }
        sqlite3_finalize(statement);
    }
    benchmark::DoNotOptimize(totals);
}

void BM_DailyTotalsYear_Floor(benchmark::State &state)
{
    for (auto _ : state)
        rawTotals("20230101", "20231231");
}
BENCHMARK(BM_DailyTotalsYear_Floor)->Unit(benchmark::kMillisecond);

void BM_DailyTotalsYear_Store(benchmark::State &state)
{
    const DiaryDB diary;
    for (auto _ : state)
        benchmark::DoNotOptimize(diary.getDailyTotals(g_user, QStringLiteral("20230101"), QStringLiteral("20231231"), 0));
}
BENCHMARK(BM_DailyTotalsYear_Store)->Unit(benchmark::kMillisecond);

void BM_DailyTotalsMonth_Floor(benchmark::State &state)
{
    for (auto _ : state)
        rawTotals("20230301", "20230331");
}
BENCHMARK(BM_DailyTotalsMonth_Floor)->Unit(benchmark::kMicrosecond);

void BM_DailyTotalsMonth_Store(benchmark::State &state)
{
    const DiaryDB diary;
    for (auto _ : state)
        benchmark::DoNotOptimize(diary.getDailyTotals(g_user, QStringLiteral("20230301"), QStringLiteral("20230331"), 0));
}
BENCHMARK(BM_DailyTotalsMonth_Store)->Unit(benchmark::kMicrosecond);

void BM_DatesWithEntriesMonth_Floor(benchmark::State &state)
{
    const char *statements[] = {
        "SELECT DISTINCT date FROM food_diary WHERE user_id = ? AND date >= ? AND date <= ? AND status <> ?",
        "SELECT DISTINCT date FROM exer_diary WHERE user_id = ? AND date > ? AND date < ? AND status <> ?",
        "SELECT date FROM water_diary WHERE user_id = ? AND cups > 0 AND date >= ? AND date <= ?"};
    for (auto _ : state) {
        QSet<QString> dates;
        for (const char *sql : statements) {
            sqlite3_stmt *statement = nullptr;
            sqlite3_prepare_v2(g_raw, sql, -1, &statement, nullptr);
            sqlite3_bind_int(statement, 1, g_user);
            sqlite3_bind_text(statement, 2, "20230301", -1, SQLITE_STATIC);
            sqlite3_bind_text(statement, 3, "20230331", -1, SQLITE_STATIC);
            sqlite3_bind_int(statement, 4, 2);
            while (sqlite3_step(statement) == SQLITE_ROW)
                dates.insert(QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, 0))));
            sqlite3_finalize(statement);
        }
        benchmark::DoNotOptimize(dates);
    }
}
BENCHMARK(BM_DatesWithEntriesMonth_Floor)->Unit(benchmark::kMicrosecond);

void BM_DatesWithEntriesMonth_Store(benchmark::State &state)
{
    const DiaryDB diary;
    for (auto _ : state)
        benchmark::DoNotOptimize(diary.getDatesWithEntries(g_user, QDate(2023, 3, 1), QDate(2023, 3, 31), false));
}
BENCHMARK(BM_DatesWithEntriesMonth_Store)->Unit(benchmark::kMicrosecond);

void BM_GetDay_Floor(benchmark::State &state)
{
    const char *statements[] = {
        "SELECT food_id, user_id, meal, date, status, ref_id, serving_id, size, food_name, serv_name, calories, fat, "
        "protein, carb, fiber, saturated_fat, cholesterol, sodium , sugar, calcium FROM food_diary WHERE user_id = ? "
        "AND date = ?",
        "SELECT  ex_id, duration, rate, name, status FROM exer_diary WHERE user_id = ? AND date = ?"};
    // The same values the store hands out: texts as QString, numbers as numbers.
    for (auto _ : state) {
        QList<QString> texts;
        QList<double> numbers;
        for (const char *sql : statements) {
            sqlite3_stmt *statement = nullptr;
            sqlite3_prepare_v2(g_raw, sql, -1, &statement, nullptr);
            sqlite3_bind_int(statement, 1, g_user);
            sqlite3_bind_text(statement, 2, "20230315", -1, SQLITE_STATIC);
            while (sqlite3_step(statement) == SQLITE_ROW) {
                for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                    if (sqlite3_column_type(statement, i) == SQLITE_TEXT)
                        texts.append(
                            QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, i))));
                    else
                        numbers.append(sqlite3_column_double(statement, i));
                }
            }
            sqlite3_finalize(statement);
        }
        benchmark::DoNotOptimize(texts);
        benchmark::DoNotOptimize(numbers);
    }
}
BENCHMARK(BM_GetDay_Floor)->Unit(benchmark::kMicrosecond);

void BM_GetDay_Store(benchmark::State &state)
{
    const DiaryDB diary;
    for (auto _ : state)
        benchmark::DoNotOptimize(diary.getDay(g_user, QStringLiteral("20230315")));
}
BENCHMARK(BM_GetDay_Store)->Unit(benchmark::kMicrosecond);

// Inserts are rolled back so that every iteration sees the same diary; the sync triggers fire in
// both (the floor runs on the store's own connection for them).
void BM_AddFoodEntry_Floor(benchmark::State &state)
{
    QSqlDatabase db = QSqlDatabase::database(QLatin1String(LmSqlDb::kConnectionName));
    for (auto _ : state) {
        db.transaction();
        QSqlQuery insert(db);
        insert.prepare(QStringLiteral(
            "INSERT INTO food_diary (food_id, user_id, date, meal, status, ref_id, food_name, serving_id, serv_name, "
            "size, calories, fat, protein, carb, fiber, saturated_fat, cholesterol, sodium , sugar, calcium) VALUES "
            "(NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?,?,?,?,?)"));
        const QVariantList values = {g_user, QStringLiteral("20230315"), 3, 1, 9003, QStringLiteral("Apples"), 1,
                                     QStringLiteral("1 cup"), 1.0, 95.0, 0.3, 0.5, 25.0, 4.4, 0.1, 0.0, 2.0, 19.0, 11.0};
        for (int i = 0; i < values.size(); ++i)
            insert.bindValue(i, values.at(i));
        insert.exec();
        QSqlQuery max(QStringLiteral("SELECT MAX(food_id) FROM food_diary"), db);
        max.next();
        benchmark::DoNotOptimize(max.value(0).toInt());
        db.rollback();
    }
}
BENCHMARK(BM_AddFoodEntry_Floor)->Unit(benchmark::kMicrosecond);

void BM_AddFoodEntry_Store(benchmark::State &state)
{
    const DiaryDB diary;
    for (auto _ : state) {
        FoodDiaryItem item(false);
        item.user_id = g_user;
        item.date = QStringLiteral("20230315");
        item.meal = 3;
        item.ref_id = 9003;
        item.food_name = QStringLiteral("Apples");
        item.serv_name = QStringLiteral("1 cup");
        item.setNutrient(ENERGY, 95);
        LmSqlDb::begin();
        diary.addFoodEntry(item);
        LmSqlDb::rollback();
        benchmark::DoNotOptimize(item.food_id);
    }
}
BENCHMARK(BM_AddFoodEntry_Store)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    g_user = BenchDiary::open();
    if (g_user < 0)
        return 1;
    sqlite3_open_v2(QFile::encodeName(BenchDiary::databaseFile()).constData(), &g_raw, SQLITE_OPEN_READONLY,
                    nullptr);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    sqlite3_close(g_raw);
    LmSqlDb::shutDown();
    BrandEngine::release();
    return 0;
}
