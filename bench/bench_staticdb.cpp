// The reference database, each figure beside its floor: the same bytes read straight from a
// mapping of the file with nothing of ours in between, and for word search also SQLite's LIKE
// over the same names.
//
// Two files: the build's own content/static.db, and a generated one of a million foods (1000
// categories of 1000, names of 3-6 words from a vocabulary of 2000) written once into /tmp and
// reused by later runs. StaticDB shares one mapping per process, so the content folder is only
// switched while no database is open: every benchmark opens and closes its own.

#include "app/lmsettings.h"
#include "staticdb/itemsearch.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdbwriter.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QtEndian>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

const QString kRealFolder = QStringLiteral(TARNWELL_BIN_DIR);
const QString kGeneratedFolder = QStringLiteral("/tmp/tarnwell-bench-staticdb");

constexpr int kCategories = 1000;
constexpr int kFoodsPerCategory = 1000;
constexpr int kSplitEvery = 10; // every tenth category holds its foods in four subcategories
constexpr int kSubcategories = 4;
constexpr int kVocabulary = 2000;
constexpr int kGeneratedRecords =
    1 + kCategories + kCategories / kSplitEvery * kSubcategories + kCategories * kFoodsPerCategory + 1;
const QDate kGeneratedDate(2001, 1, 1); // tells this generator's files from older ones

// Ranked by how often names use them (Zipf); the rest of the vocabulary is made-up words.
const char *const kFoodWords =
    "raw cooked fresh boiled chicken with salt sauce cheese dried frozen baked beef canned sugar milk "
    "without roasted green red lean fat skin meat bread rice apple sweet whole white brown flour oil "
    "butter cream egg potato tomato onion bean pork fish soup juice plain low sodium sliced chopped "
    "grilled steamed mashed braised smoked cured ham turkey lamb veal liver salmon tuna cod shrimp crab "
    "orange lemon lime banana pear peach plum cherry grape berry strawberry raspberry melon mango "
    "pineapple carrot celery cabbage spinach lettuce kale broccoli pepper garlic ginger corn pea lentil "
    "chickpea almond walnut peanut cashew oat wheat barley rye pasta noodle cracker cookie cake pie "
    "muffin biscuit yogurt honey syrup jam vinegar mustard mayonnaise dressing stew casserole salad "
    "sandwich burger pizza taco roll bun toast cereal granola snack bar drink tea coffee cocoa "
    "chocolate vanilla cinnamon nutmeg herb spice unsalted salted reduced enriched fortified prepared";

// The words of a search: the index's search, the raw scan and SQLite's LIKE all look for these.
const std::vector<std::string> kThreeWords = {"chicken", "cheese", "baked"};

QString g_folder;

// LmSettings lets the resource folder be set once; resetting it is safe while nothing is mapped.
void useFolder(const QString &folder)
{
    if (g_folder == folder)
        return;
    LmSettings::resetForTesting();
    LmSettings::setResourcePath(folder);
    g_folder = folder;
}

quint32 read32(const uchar *p)
{
    return qFromBigEndian<quint32>(p);
}

// The floors' view of the file: mapped as StaticDB maps it, read by the format's own layout.
class RawFile
{
public:
    explicit RawFile(const QString &path)
        : _fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC))
    {
        struct stat info;
        if (_fd >= 0 && ::fstat(_fd, &info) == 0) {
            void *mapped = ::mmap(nullptr, size_t(info.st_size), PROT_READ, MAP_SHARED, _fd, 0);
            if (mapped != MAP_FAILED) {
                base = static_cast<const uchar *>(mapped);
                _size = size_t(info.st_size);
            }
        }
    }
    ~RawFile()
    {
        if (base)
            ::munmap(const_cast<uchar *>(base), _size);
        if (_fd >= 0)
            ::close(_fd);
    }
    RawFile(const RawFile &) = delete;
    RawFile &operator=(const RawFile &) = delete;

    const uchar *base = nullptr;

private:
    int _fd;
    size_t _size = 0;
};

// Every field of every record of a chunk, summed so that none of the reads can be dropped.
quint64 sumRecords(const uchar *base, quint32 chunkId)
{
    const uchar *entry = base + 64;
    while (read32(entry) != chunkId)
        entry += 8;
    const uchar *chunk = base + read32(entry + 4);
    const uchar *table = chunk + read32(chunk + 4);
    quint64 sum = 0;
    for (quint32 i = 0, count = read32(chunk); i < count; ++i) {
        const uchar *record = table + size_t(i) * 16;
        sum += read32(record) + read32(record + 4) + read32(record + 8) + read32(record + 12);
    }
    return sum;
}

// Names in which every word occurs, ignoring (Latin-1) case: each name tested on its own, where
// the index points, without the tree.
int rawScanHits(const StaticDB &db, const std::vector<std::string> &words)
{
    static const std::array<uchar, 256> lower = [] {
        std::array<uchar, 256> table;
        for (int c = 0; c < 256; ++c) {
            const bool upper = (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
            table[size_t(c)] = uchar(upper ? c + 0x20 : c);
        }
        return table;
    }();
    const auto occurs = [](const std::string &word, const char *text, size_t n) {
        for (size_t p = 0; p + word.size() <= n; ++p) {
            size_t j = 0;
            while (j < word.size() && lower[uchar(text[p + j])] == uchar(word[j]))
                ++j;
            if (j == word.size())
                return true;
        }
        return false;
    };
    std::unique_ptr<BrowsableDBIterator> it(db.all(0, 0));
    const IndexEntry *first = it->next();
    int hits = 0;
    for (const IndexEntry *entry = first; entry + 1 < first + db.recordCount(); ++entry) {
        const char *name = db.namePointer(entry);
        const size_t length = db.nameLength(entry);
        hits += std::all_of(words.begin(), words.end(),
                            [&](const std::string &word) { return occurs(word, name, length); });
    }
    return hits;
}

int countShownItems(const StaticDB &db)
{
    std::unique_ptr<BrowsableDBIterator> it(db.all(FLAG_SHOWN, FLAG_CATEGORY));
    int shown = 0;
    while (it->next())
        ++shown;
    return shown;
}

int countTree(const StaticDB &db, quint32 categoryId)
{
    std::unique_ptr<BrowsableDBIterator> it(db.children(categoryId, FLAG_SHOWN, 0));
    int count = 0;
    while (const IndexEntry *entry = it->next())
        count += 1 + ((it->flagsOf(entry) & FLAG_CATEGORY) ? countTree(db, entry->id) : 0);
    return count;
}

// Both databases of the program's own file, mapped and indexed from nothing each time.
void BM_RealOpen_Floor(benchmark::State &state)
{
    useFolder(kRealFolder);
    for (auto _ : state) {
        const RawFile file(StaticDB::fileName());
        benchmark::DoNotOptimize(sumRecords(file.base, 1) + sumRecords(file.base, 2));
    }
}
BENCHMARK(BM_RealOpen_Floor)->Unit(benchmark::kMicrosecond);

void BM_RealOpenAndIndex(benchmark::State &state)
{
    useFolder(kRealFolder);
    int records = 0;
    for (auto _ : state) {
        const StaticDB foods(1);
        const StaticDB exercises(2);
        records = foods.recordCount() + exercises.recordCount();
    }
    state.counters["records"] = records;
}
BENCHMARK(BM_RealOpenAndIndex)->Unit(benchmark::kMicrosecond);

void BM_RealSearch_Floor(benchmark::State &state)
{
    useFolder(kRealFolder);
    const StaticDB db(1);
    int hits = 0;
    for (auto _ : state)
        hits = rawScanHits(db, {"apple", "raw"});
    state.counters["hits"] = hits;
}
BENCHMARK(BM_RealSearch_Floor)->Unit(benchmark::kMicrosecond);

void BM_RealSearchTwoWords(benchmark::State &state)
{
    useFolder(kRealFolder);
    StaticDB db(1);
    int hits = 0;
    for (auto _ : state) {
        db.search(QStringLiteral("apple raw"), false, 0);
        hits = countShownItems(db);
    }
    state.counters["hits"] = hits;
}
BENCHMARK(BM_RealSearchTwoWords)->Unit(benchmark::kMicrosecond);

// The same search ranked as both faces show it, the best 25 named; beside the unranked search.
void rankedSearch(benchmark::State &state, const QString &query)
{
    StaticDB db(1);
    const SearchHistory history;
    qsizetype hits = 0;
    for (auto _ : state) {
        const ItemSearchResult result = searchItems(db, nullptr, query, history, 25);
        hits = result.exact + result.close;
        benchmark::DoNotOptimize(result.items.data());
    }
    state.counters["hits"] = double(hits);
}

void BM_RealSearchTwoWordsRanked(benchmark::State &state)
{
    useFolder(kRealFolder);
    rankedSearch(state, QStringLiteral("apple raw"));
}
BENCHMARK(BM_RealSearchTwoWordsRanked)->Unit(benchmark::kMicrosecond);

// A typo: the word search finds nothing, and every name is compared closely.
void BM_RealSearchCloseMatches(benchmark::State &state)
{
    useFolder(kRealFolder);
    rankedSearch(state, QStringLiteral("brocoli"));
}
BENCHMARK(BM_RealSearchCloseMatches)->Unit(benchmark::kMicrosecond);

void BM_RealBrowse_Floor(benchmark::State &state)
{
    useFolder(kRealFolder);
    const StaticDB db(1);
    int count = 0;
    for (auto _ : state) {
        std::unique_ptr<BrowsableDBIterator> it(db.all(0, 0));
        for (count = 0; it->next();)
            ++count;
    }
    state.counters["records"] = count;
}
BENCHMARK(BM_RealBrowse_Floor)->Unit(benchmark::kMicrosecond);

void BM_RealBrowseTree(benchmark::State &state)
{
    useFolder(kRealFolder);
    StaticDB db(1);
    db.reset();
    int count = 0;
    for (auto _ : state)
        count = countTree(db, db.rootId());
    state.counters["records"] = count;
}
BENCHMARK(BM_RealBrowseTree)->Unit(benchmark::kMicrosecond);

// The generated file: a fixed seed, so every run writes the same bytes.
StaticDbNode generatedTree()
{
    std::vector<QByteArray> vocabulary;
    std::istringstream foodWords(kFoodWords);
    for (std::string word; foodWords >> word;)
        vocabulary.emplace_back(QByteArray::fromStdString(word));
    std::mt19937 random(20010101);
    const char *const syllables[] = {"ba",  "ke",  "lo",   "mi",  "nu",  "ra",  "si",  "to",
                                     "ve",  "za",  "cor",  "dan", "fel", "gur", "han", "lim",
                                     "mor", "pen", "quin", "sar", "tel", "vor"};
    std::uniform_int_distribution<int> syllable(0, int(std::size(syllables)) - 1);
    while (int(vocabulary.size()) < kVocabulary) {
        QByteArray word;
        for (int n = 2 + int(random() % 2); n > 0; --n)
            word += syllables[syllable(random)];
        if (std::find(vocabulary.begin(), vocabulary.end(), word) == vocabulary.end())
            vocabulary.push_back(word);
    }
    std::vector<double> weights;
    for (int rank = 1; rank <= kVocabulary; ++rank)
        weights.push_back(1.0 / rank);
    std::discrete_distribution<int> zipf(weights.begin(), weights.end());
    std::uniform_int_distribution<int> anyWord(0, kVocabulary - 1);
    std::uniform_int_distribution<int> wordCount(3, 6);

    // A handful of payloads, shared between the foods: their bytes do not matter here.
    std::vector<QByteArray> payloads;
    for (int i = 0; i < 16; ++i) {
        std::vector<std::optional<float>> nutrients(30);
        for (const int position : {POS_CALORIES, POS_CARB, POS_FAT, POS_PROTEIN, POS_SODIUM})
            nutrients[size_t(position)] = float(i * 7 + position);
        payloads.push_back(StaticDbWriter::foodPayload(quint32(i), QByteArray(), nutrients, 'M', 100.0f,
                                                       {{28.0f, "1 oz"}, {100.0f * float(i + 1), "1 cup"}}));
    }

    quint32 foodId = 0;
    const auto addFoods = [&](StaticDbNode &category, int count) {
        for (int i = 0; i < count; ++i) {
            StaticDbNode food;
            food.id = ++foodId;
            for (int n = wordCount(random), w = 0; w < n; ++w) {
                if (w > 0)
                    food.name += random() % 3 == 0 ? ", " : " ";
                const QByteArray &word = vocabulary[size_t(zipf(random))];
                food.name += w == 0 ? word.left(1).toUpper() + word.mid(1) : word;
            }
            food.payload = payloads[foodId % payloads.size()];
            category.children.push_back(std::move(food));
        }
    };
    const auto categoryNamed = [&](quint32 id) {
        StaticDbNode category;
        category.category = true;
        category.id = id;
        category.name =
            vocabulary[size_t(anyWord(random))].toUpper() + ' ' + vocabulary[size_t(anyWord(random))];
        return category;
    };

    StaticDbNode root;
    root.category = true;
    root.name = "All foods";
    quint32 categoryId = 0;
    for (int c = 0; c < kCategories; ++c) {
        StaticDbNode category = categoryNamed(++categoryId);
        if (c % kSplitEvery == 0) {
            for (int s = 0; s < kSubcategories; ++s) {
                StaticDbNode subcategory = categoryNamed(++categoryId);
                addFoods(subcategory, kFoodsPerCategory / kSubcategories);
                category.children.push_back(std::move(subcategory));
            }
        } else {
            addFoods(category, kFoodsPerCategory);
        }
        root.children.push_back(std::move(category));
    }
    return root;
}

bool generatedFileReady()
{
    useFolder(kGeneratedFolder);
    if (!QFile::exists(StaticDB::fileName()))
        return false;
    bool failed = false;
    const StaticDB db(1, &failed);
    return !failed && db.recordCount() == kGeneratedRecords &&
           db.creationDate() == kGeneratedDate.toString(Qt::ISODate);
}

bool writeGeneratedFile()
{
    if (generatedFileReady())
        return true;
    std::fprintf(stderr, "Writing %s ...\n", qPrintable(StaticDB::fileName()));
    QDir().mkpath(LmSettings::contentPath());
    StaticDbWriter writer(kGeneratedDate);
    writer.addChunk(1, generatedTree());
    QString error;
    if (!writer.write(StaticDB::fileName(), &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return false;
    }
    return generatedFileReady();
}

void BM_Generated_Index_Floor(benchmark::State &state)
{
    useFolder(kGeneratedFolder);
    const RawFile file(StaticDB::fileName());
    for (auto _ : state)
        benchmark::DoNotOptimize(sumRecords(file.base, 1));
    state.SetItemsProcessed(state.iterations() * kGeneratedRecords);
}
BENCHMARK(BM_Generated_Index_Floor)->Unit(benchmark::kMillisecond);

// A second database on the mapping the first one holds, as when foods and exercises are both
// open: the figure is the index alone, as the floor's is the pass alone.
void BM_Generated_Index(benchmark::State &state)
{
    useFolder(kGeneratedFolder);
    const StaticDB holder(1);
    for (auto _ : state) {
        const StaticDB db(1);
        benchmark::DoNotOptimize(db.recordCount());
    }
    state.SetItemsProcessed(state.iterations() * kGeneratedRecords);
}
BENCHMARK(BM_Generated_Index)->Unit(benchmark::kMillisecond);

void BM_Generated_Search_RawScan_Floor(benchmark::State &state)
{
    useFolder(kGeneratedFolder);
    const StaticDB db(1);
    int hits = 0;
    for (auto _ : state)
        hits = rawScanHits(db, kThreeWords);
    state.counters["hits"] = hits;
}
BENCHMARK(BM_Generated_Search_RawScan_Floor)->Unit(benchmark::kMillisecond);

// The same names in an in-memory table, read out of the generated file on first use.
sqlite3 *namesTable()
{
    static sqlite3 *names = nullptr;
    if (names)
        return names;
    useFolder(kGeneratedFolder);
    const StaticDB db(1);
    sqlite3_open(":memory:", &names);
    sqlite3_exec(names, "CREATE TABLE names(id INTEGER, name TEXT); BEGIN", nullptr, nullptr, nullptr);
    sqlite3_stmt *insert = nullptr;
    sqlite3_prepare_v2(names, "INSERT INTO names VALUES (?, ?)", -1, &insert, nullptr);
    std::unique_ptr<BrowsableDBIterator> it(db.all(0, 0));
    const IndexEntry *first = it->next();
    for (int i = 0; i + 1 < db.recordCount(); ++i) {
        sqlite3_bind_int(insert, 1, i);
        sqlite3_bind_text(insert, 2, db.namePointer(first + i), int(db.nameLength(first + i)), SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(names, "COMMIT", nullptr, nullptr, nullptr);
    return names;
}

void BM_Generated_Search_SQLiteLike(benchmark::State &state)
{
    sqlite3_stmt *query = nullptr;
    sqlite3_prepare_v2(namesTable(), "SELECT id FROM names WHERE name LIKE ? AND name LIKE ? AND name LIKE ?",
                       -1, &query, nullptr);
    for (int i = 0; i < 3; ++i)
        sqlite3_bind_text(query, i + 1, ('%' + kThreeWords[size_t(i)] + '%').c_str(), -1, SQLITE_TRANSIENT);
    int hits = 0;
    for (auto _ : state) {
        for (hits = 0; sqlite3_step(query) == SQLITE_ROW; ++hits)
            benchmark::DoNotOptimize(sqlite3_column_int(query, 0));
        sqlite3_reset(query);
    }
    sqlite3_finalize(query);
    state.counters["hits"] = hits;
}
BENCHMARK(BM_Generated_Search_SQLiteLike)->Unit(benchmark::kMillisecond);

void BM_Generated_SearchThreeWords(benchmark::State &state)
{
    useFolder(kGeneratedFolder);
    StaticDB db(1);
    const QString query =
        QString::fromStdString(kThreeWords[0] + ' ' + kThreeWords[1] + ' ' + kThreeWords[2]);
    int hits = 0;
    for (auto _ : state) {
        db.search(query, false, 0);
        hits = countShownItems(db);
    }
    state.counters["hits"] = hits;
}
BENCHMARK(BM_Generated_SearchThreeWords)->Unit(benchmark::kMillisecond);

void BM_Generated_SearchThreeWordsRanked(benchmark::State &state)
{
    useFolder(kGeneratedFolder);
    rankedSearch(state, QString::fromStdString(kThreeWords[0] + ' ' + kThreeWords[1] + ' ' + kThreeWords[2]));
}
BENCHMARK(BM_Generated_SearchThreeWordsRanked)->Unit(benchmark::kMillisecond);

// Heap an open index keeps, as glibc counts it: small blocks plus the mapped large ones.
size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void BM_Generated_HeapPerRecord(benchmark::State &state)
{
    useFolder(kGeneratedFolder);
    {
        const StaticDB first(1); // the first open also sets up logging and other statics
    }
    size_t retained = 0;
    int records = 0;
    for (auto _ : state) {
        const size_t before = heapInUse();
        const StaticDB db(1);
        retained = heapInUse() - before;
        records = db.recordCount();
    }
    state.counters["heap_bytes"] = double(retained);
    state.counters["heap_bytes_per_record"] = double(retained) / records;
}
BENCHMARK(BM_Generated_HeapPerRecord)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    // The mapping's debug lines would come between the rows of the results.
    QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*.debug=false"));
    useFolder(kRealFolder);
    if (!QFile::exists(StaticDB::fileName())) {
        std::fprintf(stderr, "%s missing: build the static_db target\n", qPrintable(StaticDB::fileName()));
        return 1;
    }
    if (!writeGeneratedFile())
        return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
