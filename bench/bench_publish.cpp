// Building and encoding the publish document of the ten-year diary (everything unpublished, so
// the document stops at its item limit), beside the floor: the same lines appended and encoded as
// UTF-8 with no escaping, no structure and no database.

#include "benchdiary.h"
#include "net/publish.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

namespace {

int g_user = 1;

void BM_PublishDocument_Floor(benchmark::State &state)
{
    LmPublish publisher(g_user);
    const QStringList lines = publisher.buildDocument().split(QLatin1Char('\n'));
    qsizetype bytes = 0;
    for (auto _ : state) {
        QString document;
        for (const QString &line : lines) {
            document += line;
            document += QLatin1Char('\n');
        }
        const QByteArray body = document.toUtf8();
        bytes = body.size();
        benchmark::DoNotOptimize(body.data());
    }
    state.counters["bytes"] = double(bytes);
}
BENCHMARK(BM_PublishDocument_Floor)->Unit(benchmark::kMillisecond);

void BM_PublishDocument(benchmark::State &state)
{
    LmPublish publisher(g_user);
    qsizetype bytes = 0;
    for (auto _ : state) {
        const QByteArray body = LmPublish::encodeBody(publisher.buildDocument());
        bytes = body.size();
        benchmark::DoNotOptimize(body.data());
    }
    state.counters["items"] = publisher.itemCount();
    state.counters["days"] = double(publisher.publishedDays().size());
    state.counters["bytes"] = double(bytes);
}
BENCHMARK(BM_PublishDocument)->Unit(benchmark::kMillisecond);

// The diary store's query for the days to send, which the document starts with: the part of the
// figure above that is the database's.
void BM_PublishDocument_ChangedDaysQuery(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(DiaryDB().getUnpublishedDates(g_user).size());
}
BENCHMARK(BM_PublishDocument_ChangedDaysQuery)->Unit(benchmark::kMillisecond);

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
