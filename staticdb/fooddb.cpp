#include "staticdb/fooddb.h"

#include "common/lmassert.h"
#include "db/lmsqldb.h"

#include <QSqlQuery>
#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace {

// Nutrient positions of the payload's value record, by FoodValue.
constexpr int kPositions[FV_COUNT] = {0, 3, 2, 1, 4, 22, 27, 9, 29, 7};
// FoodValue of each model nutrient type.
constexpr int kValueOfNutrient[kNutrientCount] = {FV_CALORIES, FV_CARB,          FV_FAT,         FV_PROTEIN,
                                                  FV_FIBER,    FV_SATURATED_FAT, FV_CHOLESTEROL, FV_SODIUM,
                                                  FV_SUGAR,    FV_CALCIUM};

// Reads forward through a payload and never past its end.
class Reader
{
public:
    explicit Reader(QByteArrayView bytes)
        : _bytes(bytes)
    {
    }
    bool byte(quint8 *value)
    {
        if (_pos >= _bytes.size())
            return false;
        *value = quint8(_bytes[_pos++]);
        return true;
    }
    bool word(quint32 *value)
    {
        if (_bytes.size() - _pos < 4)
            return false;
        *value = qFromBigEndian<quint32>(_bytes.data() + _pos);
        _pos += 4;
        return true;
    }
    bool real(float *value)
    {
        quint32 bits = 0;
        if (!word(&bits))
            return false;
        std::memcpy(value, &bits, sizeof *value);
        return true;
    }
    bool text(QByteArray *value)
    {
        const qsizetype end = _bytes.indexOf('\0', _pos);
        if (end < 0)
            return false;
        *value = _bytes.sliced(_pos, end - _pos).toByteArray();
        _pos = end + 1;
        return true;
    }

private:
    QByteArrayView _bytes;
    qsizetype _pos = 0;
};

// FoodValue of each nutrient column of custom_foods, in the statements' column order.
constexpr int kColumnOrder[FV_COUNT] = {FV_CALORIES,      FV_FAT,         FV_PROTEIN, FV_CARB,  FV_FIBER,
                                        FV_SATURATED_FAT, FV_CHOLESTEROL, FV_SODIUM,  FV_SUGAR, FV_CALCIUM};

// The values bound as doubles in column order; absent ones as NULL.
QVariantList boundValues(const std::array<float, FV_COUNT> &values)
{
    QVariantList bound;
    for (const int v : kColumnOrder) {
        const float value = values[size_t(v)];
        bound.append(value > -0.01f ? QVariant(double(value)) : QVariant());
    }
    return bound;
}

void assertId(int index)
{
    LM_ASSERT(index >= 0 && index < 0x3000000);
}

} // namespace

std::array<float, kNutrientCount> Food::nutrients() const
{
    std::array<float, kNutrientCount> out;
    for (int type = 0; type < kNutrientCount; ++type) {
        const float v = values[size_t(kValueOfNutrient[type])];
        out[size_t(type)] = isKnown(v) ? v : kUnknownNutrient;
    }
    return out;
}

std::array<float, FV_COUNT> Food::fromNutrients(const std::array<float, kNutrientCount> &nutrients)
{
    std::array<float, FV_COUNT> out;
    for (int type = 0; type < kNutrientCount; ++type) {
        const float v = nutrients[size_t(type)];
        out[size_t(kValueOfNutrient[type])] = isKnown(v) ? v : kAbsentValue;
    }
    return out;
}

// --- reference foods ---

FoodDBStatic::FoodDBStatic(bool *failed)
    : StaticDB(1, failed)
{
}

bool FoodDBStatic::contains(int id) const
{
    return id >= 0 && lookup(quint32(id), false);
}

QString FoodDBStatic::name(int id) const
{
    // The record with its name as the file holds it; a food without a name is as wrong as none.
    const IndexEntry *entry = id >= 0 ? lookup(quint32(id), false) : nullptr;
    const struct
    {
        const char *name;
    } record{entry && nameLength(entry) > 0 ? namePointer(entry) : nullptr};
    const auto *item = entry ? &record : nullptr;
    LM_ASSERT(item && item->name);
    return nameText(entry);
}

bool FoodDBStatic::decodePayload(QByteArrayView payload, quint32 seqMask, Food *food, quint32 *numeric,
                                 QString *secondText)
{
    Reader in(payload);
    quint32 attribute = 0;
    QByteArray second;
    if (!in.word(&attribute) || !in.text(&second))
        return false;
    food->values.fill(kAbsentValue);
    for (int base = 0;; base += 7) {
        quint8 mask = 0;
        if (!in.byte(&mask))
            return false;
        for (int bit = 0; bit < 7; ++bit) {
            if (!(mask & (1u << bit)))
                continue;
            float v = 0.0f;
            if (!in.real(&v))
                return false;
            const int *at = std::find(std::begin(kPositions), std::end(kPositions), base + bit);
            if (at != std::end(kPositions) && std::isfinite(v))
                food->values[size_t(at - std::begin(kPositions))] = v;
        }
        if (!(mask & 0x80))
            break;
    }
    quint8 header = 0;
    if (!in.byte(&header))
        return false;
    const int count = header & 0x0F;
    const int kind = header & 0x30;
    food->measureKind = kind == 0x10 ? 'M' : kind == 0x20 ? 'V' : 'S';
    food->referenceQuantity = -1.0f;
    if ((header & 0x40) && (!in.real(&food->referenceQuantity) || !std::isfinite(food->referenceQuantity)))
        return false;
    // Serving ids: the set bits of the mask in order, or 1, 2, ... when it does not fit.
    const bool maskFits = std::popcount(seqMask) == count;
    food->servings.clear();
    quint32 remaining = seqMask;
    for (int i = 0; i < count; ++i) {
        FoodServing serving;
        QByteArray name;
        if (!in.real(&serving.quantity) || !in.text(&name) || !std::isfinite(serving.quantity))
            return false;
        serving.name = QString::fromLatin1(name);
        if (maskFits) {
            serving.id = std::countr_zero(remaining) + 1;
            remaining &= remaining - 1;
        } else {
            serving.id = i + 1;
        }
        food->servings.append(serving);
    }
    std::stable_sort(food->servings.begin(), food->servings.end(),
                     [](const FoodServing &a, const FoodServing &b) { return a.quantity < b.quantity; });
    if (numeric)
        *numeric = attribute;
    if (secondText)
        *secondText = QString::fromLatin1(second);
    return true;
}

bool FoodDBStatic::food(int id, Food *out) const
{
    const IndexEntry *food = id >= 0 ? lookup(quint32(id), false) : nullptr;
    LM_ASSERT(food);
    out->name = nameText(food);
    return decodePayload(payload(food), food->value, out);
}

QList<FoodServing> FoodDBStatic::servings(int id) const
{
    Food f;
    return food(id, &f) ? f.servings : QList<FoodServing>();
}

quint32 FoodDBStatic::numericAttribute(int id) const
{
    const IndexEntry *item = id >= 0 ? lookup(quint32(id), false) : nullptr;
    LM_ASSERT(item);
    const QByteArrayView bytes = payload(item);
    return bytes.size() >= 4 ? qFromBigEndian<quint32>(bytes.data()) : 0;
}

QString FoodDBStatic::secondText(int id) const
{
    const IndexEntry *item = id >= 0 ? lookup(quint32(id), false) : nullptr;
    LM_ASSERT(item);
    Food f;
    QString text;
    decodePayload(payload(item), item->value, &f, nullptr, &text);
    return text;
}

// --- custom foods ---

const DynamicDB::Tables FoodDBDynamic::kTables = {"Foods", "custom_food_cats", "custom_foods", "food_id",
                                                  "name"};

FoodDBDynamic::FoodDBDynamic(int user_id)
    : DynamicDB(kTables, user_id)
{
}

QVariant FoodDBDynamic::column(const char *name, int id) const
{
    LmSqlQueryPtr query = runBound(
        QStringLiteral("SELECT %1 FROM custom_foods WHERE food_id = ?").arg(QLatin1String(name)), {id});
    return !query.isNull() && query->next() ? query->value(0) : QVariant();
}

bool FoodDBDynamic::contains(int id) const
{
    return column("name", id).isValid();
}

QString FoodDBDynamic::name(int id) const
{
    return column("name", id).toString();
}

QString FoodDBDynamic::servingName(int id) const
{
    return column("serv_name", id).toString();
}

int FoodDBDynamic::categoryOf(int id) const
{
    const QVariant category = column("category_id", id);
    return category.isValid() ? category.toInt() : -1;
}

bool FoodDBDynamic::food(int id, Food *food) const
{
    LmSqlQueryPtr query =
        runBound(QStringLiteral("SELECT calories, fat, protein, carb, fiber, saturated_fat, cholesterol, "
                                "sodium, sugar, calcium FROM custom_foods WHERE food_id = ?"),
                 {id});
    if (query.isNull() || !query->next())
        return false;
    food->values.fill(kAbsentValue);
    for (int i = 0; i < FV_COUNT; ++i) {
        const QVariant v = query->value(i);
        if (!v.isNull())
            food->values[size_t(kColumnOrder[i])] = v.toFloat();
    }
    food->name = name(id);
    food->measureKind = 'S';
    food->referenceQuantity = 1.0f;
    food->servings = servings(id);
    return true;
}

QList<FoodServing> FoodDBDynamic::servings(int id) const
{
    return {{servingName(id), 0, 1.0f}};
}

int FoodDBDynamic::addFood(const QString &name, const QString &servingName,
                           const std::array<float, FV_COUNT> &values, int category)
{
    return insertWithNextId(
        QStringLiteral("SELECT MAX(food_id)+1 FROM custom_foods"), {}, kFirstCustomId, [&](int id) {
            return change("INSERT INTO custom_foods(name, serv_name, calories, fat, protein, "
                          "carb, fiber, saturated_fat, cholesterol, sodium, sugar, calcium, "
                          "category_id, food_id) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
                          "?, ?)",
                          QVariantList{name, servingName} + boundValues(values) + QVariantList{category, id});
        });
}

bool FoodDBDynamic::updateFood(int id, const QString &name, const QString &servingName,
                               const std::array<float, FV_COUNT> &values)
{
    return change(
        "UPDATE custom_foods SET name = ?, serv_name = ?, calories = ?, fat = ?, protein = ?, carb = ?, "
        "fiber = ?, saturated_fat = ?, cholesterol = ?, sodium = ?, sugar = ?, calcium = ? WHERE food_id = ?",
        QVariantList{name, servingName} + boundValues(values) + QVariantList{id});
}

// --- favourites ---

namespace {

struct FavoriteCache
{
    int user_id = -2;
    int type = 0;
    QList<int> items;
};

FavoriteCache &favoriteCache()
{
    static FavoriteCache cache;
    return cache;
}

} // namespace

int Favorites::typeOf(int modeBits)
{
    if ((modeBits & 0x01) && !(modeBits & 0x04))
        return FOODS;
    if ((modeBits & 0x02) && !(modeBits & 0x04))
        return EXERCISES;
    return NONE;
}

bool Favorites::add(int user_id, int type, int item_id)
{
    favoriteCache().user_id = -2;
    return !runBound(QStringLiteral("INSERT INTO favorites (user_id, item_type, item_id) VALUES (?, ?, ?)"),
                     {user_id, type, item_id})
                .isNull();
}

bool Favorites::remove(int user_id, int type, int item_id)
{
    // Removing must not leave the removed item in a cached list either.
    favoriteCache().user_id = -2;
    return !runBound(
                QStringLiteral("DELETE FROM favorites where user_id = ? AND item_type = ? AND item_id = ?"),
                {user_id, type, item_id})
                .isNull();
}

bool Favorites::contains(int user_id, int type, int item_id)
{
    LmSqlQueryPtr query = runBound(
        QStringLiteral("SELECT item_id FROM favorites where user_id = ? AND item_type = ? AND item_id = ?"),
        {user_id, type, item_id});
    return !query.isNull() && query->next();
}

QList<int> Favorites::list(int user_id, int type)
{
    if (type == NONE)
        return {};
    FavoriteCache &cache = favoriteCache();
    if (cache.user_id == user_id && cache.type == type)
        return cache.items;
    QList<int> items;
    LmSqlQueryPtr query = runBound(
        QStringLiteral("SELECT item_id FROM favorites where user_id = ? AND item_type = ?"), {user_id, type});
    if (query.isNull())
        return items;
    while (query->next())
        items.append(query->value(0).toInt());
    cache = {user_id, type, items};
    return items;
}

// --- the facade ---

FoodDB::FoodDB(int user_id, bool *failed)
{
    bool staticFailed = false;
    _static = std::make_unique<FoodDBStatic>(failed ? &staticFailed : nullptr);
    if (staticFailed) {
        _static.reset();
        *failed = true;
    }
    _dynamic = std::make_unique<FoodDBDynamic>(user_id);
    FoodInfoSource::setInstance(this);
}

FoodDB::~FoodDB()
{
    if (FoodInfoSource::instance() == this)
        FoodInfoSource::setInstance(nullptr);
}

const FoodDBBase *FoodDB::route(int id) const
{
    assertId(id);
    if (id < kFirstCustomId)
        return _static.get();
    return _dynamic.get();
}

bool FoodDB::contains(int id) const
{
    const FoodDBBase *db = route(id);
    return db && db->contains(id);
}

QString FoodDB::name(int id) const
{
    const FoodDBBase *db = route(id);
    return db ? db->name(id) : QString();
}

bool FoodDB::food(int id, Food *food) const
{
    const FoodDBBase *db = route(id);
    return db && db->food(id, food);
}

QList<FoodServing> FoodDB::servings(int id) const
{
    const FoodDBBase *db = route(id);
    return db ? db->servings(id) : QList<FoodServing>();
}

// The diary asks for foods that may have left the database since: unknown ids answer false.
bool FoodDB::foodName(int refId, QString *name) const
{
    if (refId < 0 || refId >= kIdLimit || !contains(refId))
        return false;
    *name = this->name(refId);
    return true;
}

bool FoodDB::foodReference(int refId, FoodReference *reference) const
{
    Food f;
    if (refId < 0 || refId >= kIdLimit || !contains(refId) || !food(refId, &f))
        return false;
    reference->baseQuantity = f.referenceQuantity;
    reference->measureKind = f.measureKind;
    reference->nutrients = f.nutrients();
    return true;
}

QList<FoodServing> FoodDB::foodServings(int refId) const
{
    if (refId < 0 || refId >= kIdLimit || !contains(refId))
        return {};
    return servings(refId);
}
