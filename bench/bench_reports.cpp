// A year of the energy report on the ten-year household diary, beside the floor: the same rows
// summed by the same SQL through SQLite's C interface, with no store or report in between.

#include "benchdiary.h"
#include "reports/energyreport.h"
#include "reports/reportoutput.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

namespace {

int g_user = 1;
sqlite3 *g_raw = nullptr;

const QDate kLast(2023, 12, 31);

// The food sums, the exercise sums and the target rows the report reads; ?1 user, ?2 status of a
// removed entry, ?3 and ?4 the range.
const char *const kFloorQueries[] = {
    "SELECT date, SUM(calories), SUM(fat), SUM(fiber), SUM(protein), SUM(carb), SUM(saturated_fat), "
    "SUM(cholesterol), SUM(sodium), SUM(sugar), SUM(calcium), COUNT(*) FROM food_diary WHERE user_id = ?1 "
    "AND "
    "status <> ?2 AND date >= ?3 AND date <= ?4 GROUP BY date",
    "SELECT date, SUM(rate*duration), SUM(duration) FROM exer_diary WHERE user_id = ?1 AND status <> ?2 AND "
    "date >= ?3 AND date <= ?4 GROUP BY date",
    "SELECT date, target_calories FROM user_target WHERE target_calories IS NOT NULL AND user_id = ?1 AND "
    "date <= ?4 AND date >= IFNULL((SELECT MAX(date) FROM user_target WHERE target_calories IS NOT NULL AND "
    "user_id = ?1 AND date <= ?3), '') ORDER BY date"};

void BM_EnergyReportYear_Floor(benchmark::State &state)
{
    const QByteArray from = DateConversion::fromQDate(kLast.addYears(-1).addDays(1)).toLatin1();
    const QByteArray to = DateConversion::fromQDate(kLast).toLatin1();
    for (auto _ : state) {
        double sum = 0.0;
        for (const char *sql : kFloorQueries) {
            sqlite3_stmt *statement = nullptr;
            sqlite3_prepare_v2(g_raw, sql, -1, &statement, nullptr);
            sqlite3_bind_int(statement, 1, g_user);
            sqlite3_bind_int(statement, 2, STATUS_DELETED);
            sqlite3_bind_text(statement, 3, from.constData(), -1, SQLITE_STATIC);
            sqlite3_bind_text(statement, 4, to.constData(), -1, SQLITE_STATIC);
            while (sqlite3_step(statement) == SQLITE_ROW) {
                benchmark::DoNotOptimize(sqlite3_column_text(statement, 0));
                for (int i = 1; i < sqlite3_column_count(statement); ++i)
                    sum += sqlite3_column_double(statement, i);
            }
            sqlite3_finalize(statement);
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_EnergyReportYear_Floor)->Unit(benchmark::kMillisecond);

void BM_EnergyReportYear(benchmark::State &state)
{
    const ReportRange range = ReportRange::ending(ReportRange::Year, kLast);
    for (auto _ : state)
        benchmark::DoNotOptimize(EnergyReport(g_user, range).document());
}
BENCHMARK(BM_EnergyReportYear)->Unit(benchmark::kMillisecond);

void BM_EnergyReportYearText(benchmark::State &state)
{
    const ReportRange range = ReportRange::ending(ReportRange::Year, kLast);
    const ReportUnits units = ReportUnits::of(g_user);
    for (auto _ : state)
        benchmark::DoNotOptimize(reportText(EnergyReport(g_user, range).document(), units));
}
BENCHMARK(BM_EnergyReportYearText)->Unit(benchmark::kMillisecond);

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
