// Exporting a ten-year diary to one CSV file, beside the floor: the same lines with the same
// formatting written from memory (the days loaded beforehand).

#include "benchdiary.h"
#include "reports/csvexportdiary.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

int g_user = 1;
const QDate kLast = BenchDiary::kFirstDay.addYears(BenchDiary::kYears).addDays(-1);

qint64 countLines(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().count('\n') : 0;
}

void BM_ExportTenYears_Floor(benchmark::State &state)
{
    QList<QPair<QString, DiaryDay>> days;
    const DiaryDB diary;
    for (QDate date = BenchDiary::kFirstDay; date <= kLast; date = date.addDays(1)) {
        const QString day = DateConversion::fromQDate(date);
        days.append({day, diary.getDay(g_user, day)});
    }
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("floor.csv"));
    for (auto _ : state) {
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(csvHeader());
        for (const auto &[day, entries] : days)
            file.write(csvDay(day, entries));
    }
    state.counters["lines/s"] = benchmark::Counter(double(countLines(path)) * double(state.iterations()),
                                                   benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ExportTenYears_Floor)->Unit(benchmark::kMillisecond);

void BM_ExportTenYears_Store(benchmark::State &state)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("diary.csv"));
    for (auto _ : state)
        exportDiary(g_user, path, QString(), BenchDiary::kFirstDay, kLast, false);
    state.counters["lines/s"] = benchmark::Counter(double(countLines(path)) * double(state.iterations()),
                                                   benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ExportTenYears_Store)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    g_user = BenchDiary::open();
    if (g_user < 0)
        return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    LmSqlDb::shutDown();
    BrandEngine::release();
    return 0;
}
