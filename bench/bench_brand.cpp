// Loading the brand at start-up, beside the floor of reading the same archive's bytes.

#include "brand/brandengine.h"
#include "brand/tarfilereader.h"

#include <QFile>
#include <QGuiApplication>

#include <benchmark/benchmark.h>

namespace {

const QString kBrandFile = QStringLiteral(TARNWELL_BIN_DIR "/brand.dat");

// Floor: the archive's bytes read once from the page cache.
void BM_ReadArchiveBytes(benchmark::State &state)
{
    for (auto _ : state) {
        QFile file(kBrandFile);
        if (!file.open(QIODevice::ReadOnly)) {
            state.SkipWithError("brand.dat missing");
            return;
        }
        benchmark::DoNotOptimize(file.readAll());
    }
}
BENCHMARK(BM_ReadArchiveBytes)->Unit(benchmark::kMicrosecond);

void BM_CatalogueArchive(benchmark::State &state)
{
    for (auto _ : state) {
        TarFileReader reader;
        if (!reader.open(kBrandFile)) {
            state.SkipWithError("brand.dat missing");
            return;
        }
        benchmark::DoNotOptimize(reader.catalogue().size());
    }
}
BENCHMARK(BM_CatalogueArchive)->Unit(benchmark::kMicrosecond);

void BM_LoadBrand(benchmark::State &state)
{
    for (auto _ : state) {
        if (!BrandEngine::instance().load(kBrandFile)) {
            state.SkipWithError("brand.dat missing");
            return;
        }
        benchmark::DoNotOptimize(BrandEngine::instance().getString(QStringLiteral("app_name")));
        BrandEngine::release();
    }
}
BENCHMARK(BM_LoadBrand)->Unit(benchmark::kMicrosecond);

void BM_DecodeAllImages(benchmark::State &state)
{
    BrandEngine::instance().load(kBrandFile);
    const QStringList ids = BrandEngine::instance().ids(BrandEngine::ValueType::Image);
    for (auto _ : state) {
        for (const QString &id : ids)
            benchmark::DoNotOptimize(BrandEngine::instance().getPixmap(id));
    }
    BrandEngine::release();
}
BENCHMARK(BM_DecodeAllImages)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
