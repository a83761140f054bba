// The desktop program on the ten-year diary with the real reference database: opening the main
// window on a profile beside the floor of showing an empty main window, a keystroke in the food
// search, and a change of day.

#include "benchdiary.h"
#include "db/lmsqldb.h"
#include "reports/daytable.h"
#include "reports/diarysheet.h"
#include "reports/pagewriter.h"
#include "reports/weightreport.h"
#include "staticdb/itemsearch.h"
#include "ui/diaryview.h"
#include "ui/mainwindow.h"
#include "ui/reportsview.h"

#include <QApplication>
#include <QLineEdit>
#include <QPdfWriter>
#include <QProcess>
#include <QSettings>

#include <benchmark/benchmark.h>

namespace {

int g_user = 1;

// Whole programs, from exec to the shown window and out: ours on the ten-year diary beside an
// empty Qt window.
void runProgram(benchmark::State &state, const QString &program, bool diary)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("TARNWELL_EXIT_WHEN_SHOWN"), QStringLiteral("1"));
    if (diary) {
        env.insert(QStringLiteral("XDG_DATA_HOME"), BenchDiary::kHome + QStringLiteral("/data"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), BenchDiary::kHome + QStringLiteral("/config"));
    }
    for (auto _ : state) {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(
            program, diary ? QStringList{QStringLiteral("-resourcedir"), QStringLiteral(TARNWELL_BIN_DIR "/")}
                           : QStringList());
        if (!process.waitForFinished(60000) || process.exitCode() != 0) {
            // What it said, so that a failed run can be told from a slow one.
            static std::string why;
            why = QStringLiteral("the program did not start and end (status %1, exit %2, error %3): %4")
                      .arg(process.exitStatus())
                      .arg(process.exitCode())
                      .arg(process.error())
                      .arg(QString::fromLocal8Bit(process.readAllStandardError().right(300)))
                      .toStdString();
            state.SkipWithError(why.c_str());
            return;
        }
    }
}

void BM_StartProgram_Floor(benchmark::State &state)
{
    runProgram(state, QStringLiteral(TARNWELL_BENCH_DIR "/emptywindow"), false);
}
BENCHMARK(BM_StartProgram_Floor)->Unit(benchmark::kMillisecond);

void BM_StartProgram(benchmark::State &state)
{
    runProgram(state, QStringLiteral(TARNWELL_BIN_DIR "/tarnwell"), true);
}
BENCHMARK(BM_StartProgram)->Unit(benchmark::kMillisecond);

void BM_ShowMainWindow_Floor(benchmark::State &state)
{
    for (auto _ : state) {
        QMainWindow window;
        window.show();
        QApplication::processEvents();
    }
}
BENCHMARK(BM_ShowMainWindow_Floor)->Unit(benchmark::kMillisecond);

void BM_ShowMainWindow(benchmark::State &state)
{
    for (auto _ : state) {
        MainWindow window;
        window.openProfile(g_user);
        window.show();
        QApplication::processEvents();
    }
}
BENCHMARK(BM_ShowMainWindow)->Unit(benchmark::kMillisecond);

// The query grows by one letter, as when typing "apple r" after "apple ".
void BM_SearchKeystroke(benchmark::State &state)
{
    MainWindow window;
    window.openProfile(g_user);
    window.show();
    auto *search = window.findChild<QLineEdit *>(QStringLiteral("search"));
    bool longer = false;
    for (auto _ : state) {
        search->setText(longer ? QStringLiteral("apple r") : QStringLiteral("apple ra"));
        longer = !longer;
        QApplication::processEvents();
    }
}
BENCHMARK(BM_SearchKeystroke)->Unit(benchmark::kMillisecond);

// What the ranking learns from the diary, read again after every change of it: ten years of one
// profile's foods, beside the plain count of the same rows.
void BM_SearchHistory_Floor(benchmark::State &state)
{
    for (auto _ : state) {
        LmSqlQueryPtr query =
            runBound(QStringLiteral("SELECT ref_id, COUNT(*) FROM food_diary WHERE user_id = ? "
                                    "AND status <> ? AND ref_id >= 0 GROUP BY ref_id"),
                     {g_user, STATUS_DELETED});
        int rows = 0;
        while (!query.isNull() && query->next())
            ++rows;
        benchmark::DoNotOptimize(rows);
    }
}
BENCHMARK(BM_SearchHistory_Floor)->Unit(benchmark::kMillisecond);

void BM_SearchHistory(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(loadSearchHistory(g_user, false).byId.size());
}
BENCHMARK(BM_SearchHistory)->Unit(benchmark::kMillisecond);

void BM_ChangeDay(benchmark::State &state)
{
    MainWindow window;
    window.openProfile(g_user);
    window.show();
    QDate day = BenchDiary::kFirstDay.addDays(400);
    for (auto _ : state) {
        day = day.addDays(1);
        window.diary()->setDate(day);
        QApplication::processEvents();
    }
}
BENCHMARK(BM_ChangeDay)->Unit(benchmark::kMillisecond);

// The Reports section opened on a year of the weight chart, beside reading the same report alone.
void BM_OpenWeightChartYear_Floor(benchmark::State &state)
{
    const QDate last = BenchDiary::kFirstDay.addYears(9);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            WeightReport(g_user, ReportRange::ending(ReportRange::Year, last)).document());
}
BENCHMARK(BM_OpenWeightChartYear_Floor)->Unit(benchmark::kMillisecond);

void BM_OpenWeightChartYear(benchmark::State &state)
{
    MainWindow window;
    window.openProfile(g_user);
    window.diary()->setDate(BenchDiary::kFirstDay.addYears(9));
    window.show();
    ReportsView *reports = window.reports();
    reports->setRange(ReportRange::Year);
    reports->setReport(ReportsView::Weight);
    for (auto _ : state) {
        window.showSection(MainWindow::DiarySection);
        window.showSection(MainWindow::ReportsSection);
        QApplication::processEvents();
    }
}
BENCHMARK(BM_OpenWeightChartYear)->Unit(benchmark::kMillisecond);

// A year of the diary printed to a PDF file, beside reading the same days.
void BM_DiaryYearPdf_Floor(benchmark::State &state)
{
    const QDate first = BenchDiary::kFirstDay.addYears(8);
    for (auto _ : state) {
        int entries = 0;
        for (QDate day = first; day < first.addYears(1); day = day.addDays(1))
            entries += int(DayTable::read(g_user, day, DayTable::columnsOf(g_user)).diary.foods.size());
        benchmark::DoNotOptimize(entries);
    }
}
BENCHMARK(BM_DiaryYearPdf_Floor)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_DiaryYearPdf(benchmark::State &state)
{
    const QDate first = BenchDiary::kFirstDay.addYears(8);
    const QString file = BenchDiary::kHome + QStringLiteral("/year.pdf");
    int pages = 0;
    for (auto _ : state) {
        QPdfWriter pdf(file);
        PageWriter::useA4(&pdf);
        DiarySheet sheet(g_user, first, first.addYears(1).addDays(-1));
        sheet.print(&pdf);
        pages = sheet.pages();
    }
    state.counters["pages"] = pages;
}
BENCHMARK(BM_DiaryYearPdf)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    g_user = BenchDiary::open();
    if (g_user < 0)
        return 1;
    // The program started below runs with the real brand, whose data folder is another one: point
    // it at the diary.
    QSettings program(BenchDiary::kHome + QStringLiteral("/config/tarnwell/Ambervale/Tarnwell.ini"),
                      QSettings::IniFormat);
    program.setValue(QStringLiteral("admin/userdbpath"), LmSettings::userDatabasePath());
    program.sync();
    // The windows want the real brand's texts and pictures.
    BrandEngine::release();
    if (!BrandEngine::instance().load(QStringLiteral(TARNWELL_BIN_DIR "/brand.dat")))
        return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    LmSqlDb::shutDown();
    BrandEngine::release();
    return 0;
}
