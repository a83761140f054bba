#include "server/webfoodsearch.h"

#include "server/mealplandb.h"
#include "server/serverlog.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"
#include "staticdb/memmappedfile.h"
#include "staticdb/staticdb.h"
#include "staticdb/staticdbupdater.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QTemporaryFile>

#include <cmath>

namespace {

// The foods' chunk of the reference file, indexed without the program's content folder.
class ReferenceIndex : public IndexedDB
{
};

constexpr quint32 kFoodChunk = 1;
constexpr double kLargestQuantity = 100000;

} // namespace

struct WebFoodSearch::Private
{
    QString published, fallback;
    QString path; // the one open
    QMutex mutex;
    // The stamp of the file that is open: it is opened again when the file on disk differs.
    QDateTime modified, changed;
    qint64 size = -1;
    std::unique_ptr<QTemporaryFile> inflated; // a compressed file's content
    std::unique_ptr<MemMappedFile> file;
    std::unique_ptr<ReferenceIndex> index; // points into file: dropped first
    QString error;
};

WebFoodSearch::WebFoodSearch(const QString &path, const QString &fallback)
    : d(std::make_unique<Private>())
{
    d->published = path;
    d->fallback = fallback;
}

WebFoodSearch::~WebFoodSearch()
{
    d->index.reset();
}

bool WebFoodSearch::openLocked(QString *error)
{
    const QString path =
        QFileInfo::exists(d->published) || d->fallback.isEmpty() ? d->published : d->fallback;
    if (path != d->path) {
        d->path = path;
        d->index.reset();
    }
    const QFileInfo info(d->path);
    if (d->path.isEmpty() || !info.isFile()) {
        d->index.reset();
        d->file.reset();
        d->size = -1;
        d->error = QStringLiteral("The server has no food database.");
    } else if (!d->index || info.lastModified() != d->modified || info.metadataChangeTime() != d->changed ||
               info.size() != d->size) {
        d->index.reset();
        d->modified = info.lastModified();
        d->changed = info.metadataChangeTime();
        d->size = info.size();
        d->file.reset();
        d->inflated.reset();
        d->error.clear();
        QString mapped = d->path;
        if (d->path.endsWith(QLatin1String(".gz"))) {
            // The published update is compressed: its content is searched from a private copy.
            d->inflated =
                std::make_unique<QTemporaryFile>(QDir::tempPath() + QStringLiteral("/tarnwell-foods-XXXXXX"));
            if (!d->inflated->open() ||
                StaticDbUpdater::inflate(d->path, d->inflated->fileName(),
                                         StaticDbUpdater::kMaxDatabaseSize) != StaticDbUpdater::Inflated::Ok)
                mapped.clear();
            else
                mapped = d->inflated->fileName();
        }
        d->file = std::make_unique<MemMappedFile>(mapped);
        QString created;
        bool missingChunk = false;
        auto index = std::make_unique<ReferenceIndex>();
        if (!d->file->isValid()) {
            d->error = QStringLiteral("The food database could not be read.");
        } else if (!StaticDB::readHeader(d->file->base(), d->file->size(), &created) ||
                   !index->index(d->file->base(), d->file->size(), kFoodChunk, &missingChunk) ||
                   !index->lookup(index->rootId(), true)) {
            d->error = QStringLiteral("The food database is damaged.");
        } else {
            d->index = std::move(index);
        }
        if (!d->index) {
            d->file.reset();
            d->inflated.reset();
            qCWarning(lcServer, "food search: %s (%s)", qUtf8Printable(d->error), qUtf8Printable(d->path));
        }
    }
    if (error)
        *error = d->error;
    return d->index != nullptr;
}

bool WebFoodSearch::available(QString *error)
{
    const QMutexLocker lock(&d->mutex);
    return openLocked(error);
}

QList<WebFoodSearch::Found> WebFoodSearch::search(const QString &query, int limit, QString *note)
{
    const QMutexLocker lock(&d->mutex);
    QList<Found> found;
    if (!openLocked(nullptr))
        return found;
    const ItemSearchResult result = searchItems(*d->index, nullptr, query, SearchHistory(), limit);
    for (const FoundItem &item : result.items)
        found.append({item.id, item.name, item.close});
    if (note)
        *note = result.closeMatchNote(query);
    return found;
}

std::optional<ReferenceFood> WebFoodSearch::food(int id)
{
    const QMutexLocker lock(&d->mutex);
    if (id < 0 || id >= kFirstCustomId || !openLocked(nullptr))
        return std::nullopt;
    const IndexEntry *entry = d->index->lookup(quint32(id), false);
    Food food;
    if (!entry || !FoodDBStatic::decodePayload(d->index->payload(entry), entry->value, &food))
        return std::nullopt;
    ReferenceFood out;
    out.id = id;
    out.name = d->index->nameText(entry);
    out.nutrients = food.nutrients();
    out.referenceQuantity = food.referenceQuantity;
    // The servings a diary entry offers for the food, in the same order.
    out.servings = food.servings;
    if (food.referenceQuantity > 0.0f) {
        const std::optional<FoodServing> millilitres =
            food.measureKind == 'M' ? millilitresOf(food.servings) : std::nullopt;
        out.servings += genericServings(food.measureKind);
        if (millilitres)
            out.servings.append(*millilitres);
    }
    if (out.servings.isEmpty())
        return std::nullopt;
    out.preferred = preferredServing(out.servings);
    return out;
}

bool WebFoodSearch::planEntry(const ReferenceFood &food, int servingId, double qty, PlannedFood *entry)
{
    const auto serving = std::find_if(food.servings.cbegin(), food.servings.cend(),
                                      [servingId](const FoodServing &s) { return s.id == servingId; });
    if (serving == food.servings.cend() || !std::isfinite(qty) || qty <= 0 || qty > kLargestQuantity)
        return false;
    // As a diary entry scales: the serving's grams over the reference quantity, times the size.
    const double factor =
        (food.referenceQuantity > 0.0f ? double(serving->quantity) / double(food.referenceQuantity) : 1.0) *
        qty;
    const auto value = [&](int type) -> std::optional<double> {
        const float v = food.nutrients[size_t(type)];
        return isKnown(v) ? std::optional(double(v) * factor) : std::nullopt;
    };
    entry->foodName = food.name;
    entry->servName = serving->name;
    entry->qty = qty;
    entry->calories = value(ENERGY);
    entry->carbohydrate = value(CARB);
    entry->fat = value(FAT);
    entry->fiber = value(FIBER);
    entry->protein = value(PROTEIN);
    return true;
}
