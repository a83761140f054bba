#include "model/dbtypes.h"

#include "common/lmassert.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

const FoodInfoSource *g_foodInfo = nullptr;

bool isSnack(int meal)
{
    return meal == SNACK_1 || meal == SNACK_2 || meal == SNACK_3;
}

} // namespace

int mealAtTime(const QTime &time)
{
    static constexpr std::pair<int, int> kUntil[] = {{4 * 60, SNACK_3},       {10 * 60, BREAKFAST},
                                                     {11 * 60 + 30, SNACK_1}, {14 * 60 + 30, LUNCH},
                                                     {17 * 60 + 30, SNACK_2}, {21 * 60, DINNER}};
    const int minute = time.hour() * 60 + time.minute();
    for (const auto &[until, meal] : kUntil) {
        if (minute < until)
            return meal;
    }
    return SNACK_3;
}

QString mealName(int meal, int snackMode)
{
    switch (meal) {
    case BREAKFAST:
        return QStringLiteral("Breakfast");
    case LUNCH:
        return QStringLiteral("Lunch");
    case DINNER:
        return QStringLiteral("Dinner");
    case EXERCISE:
        return QStringLiteral("Exercise");
    case SNACK_1:
        return snackMode == 1 ? QStringLiteral("Morning snack") : QStringLiteral("Snacks #1");
    case SNACK_2:
        return snackMode == 1 ? QStringLiteral("Afternoon snack") : QStringLiteral("Snacks #2");
    case SNACK_3:
        if (snackMode == 1)
            return QStringLiteral("Evening snack");
        return snackMode == 2 ? QStringLiteral("Snacks #3") : QStringLiteral("Snacks");
    default:
        return QString();
    }
}

QList<QList<int>> mealGroups(int snackMode)
{
    if (snackMode == 1)
        return {{1}, {2}, {3}, {4}, {5}, {6}};
    if (snackMode == 0)
        return {{1}, {3}, {5}, {2, 4, 6}};
    return {{1}, {3}, {5}, {2}, {4}, {6}};
}

void FoodInfoSource::setInstance(const FoodInfoSource *source)
{
    g_foodInfo = source;
}

const FoodInfoSource *FoodInfoSource::instance()
{
    return g_foodInfo;
}

QList<FoodServing> genericServings(char measureKind)
{
    if (measureKind == 'M')
        return {{QStringLiteral("g"), -1, 1.0f}, {QStringLiteral("oz"), -2, 28.35f}};
    if (measureKind == 'V')
        return {{QStringLiteral("mL"), -3, 1.0f}, {QStringLiteral("fl.oz"), -4, 29.574f}};
    return {}; // 'S': measured in its own servings only
}

std::optional<FoodServing> millilitresOf(const QList<FoodServing> &servings)
{
    static const QRegularExpression fluidOunces(QStringLiteral("^(\\d+(?:\\.\\d+)?) fl oz$"));
    for (const FoodServing &s : servings) {
        const QRegularExpressionMatch match = fluidOunces.match(s.name);
        const double ounces = match.hasMatch() ? match.captured(1).toDouble() : 0.0;
        if (ounces > 0 && s.quantity > 0)
            return FoodServing{QStringLiteral("mL"), kMillilitreServing,
                               float(s.quantity / (ounces * kMillilitresPerFluidOunce))};
    }
    return std::nullopt;
}

QList<FoodServing> servingsInOrder(QList<FoodServing> servings, bool metric)
{
    if (!metric)
        return servings;
    for (const int id : {kMillilitreServing, -3, -1}) {
        const auto own = std::find_if(servings.cbegin(), servings.cend(),
                                      [id](const FoodServing &s) { return s.id == id; });
        if (own != servings.cend()) {
            servings.move(own - servings.cbegin(), 0);
            break;
        }
    }
    return servings;
}

ServingChoice preferredServing(const QList<FoodServing> &servings)
{
    const auto named = [&servings](const QString &start) {
        return std::find_if(servings.cbegin(), servings.cend(), [&start](const FoodServing &s) {
            return s.id >= 0 && s.name.startsWith(start, Qt::CaseInsensitive);
        });
    };
    for (const QString &start : {QStringLiteral("1 medium"), QStringLiteral("1 cup")}) {
        if (const auto it = named(start); it != servings.cend())
            return {it->id, 1.0f};
    }
    // The food's own servings keep the order the food database gives them (by size); its first
    // measure is the one with the lowest id.
    const FoodServing *own = nullptr;
    for (const FoodServing &s : servings) {
        if (s.id >= 0 && (!own || s.id < own->id))
            own = &s;
    }
    if (own)
        return {own->id, 1.0f};
    if (!servings.isEmpty())
        return {servings.constFirst().id, servings.constFirst().quantity == 1.0f ? 100.0f : 1.0f};
    return {};
}

FoodDiaryItem::FoodDiaryItem(bool unknownNutrients)
{
    _nutrients.fill(unknownNutrients ? kUnknownNutrient : 0.0f);
}

float FoodDiaryItem::getNutrient(int type) const
{
    return type >= 0 && type < kNutrientCount ? _nutrients[size_t(type)] : 0.0f;
}

void FoodDiaryItem::setNutrient(int type, float value)
{
    if (type >= 0 && type < kNutrientCount)
        _nutrients[size_t(type)] = value;
}

void FoodDiaryItem::setDate(const QString &newDate)
{
    LM_ASSERT(newDate.length() == 8);
    date = newDate;
}

void FoodDiaryItem::changeFood(int refId)
{
    size = 1.0f;
    ref_id = refId;
    _loaded = false;
    if (!loadFoodInfo(false))
        LM_ASSERT(!"changeFood: loadFoodInfo failed!");
}

void FoodDiaryItem::setServing(int servingId)
{
    if (!loadFoodInfo(true) || !updateFoodInfo(servingId, size))
        LM_ASSERT(!"FDI::setServing - uFI failed!");
}

void FoodDiaryItem::setSize(float newSize)
{
    if (!loadFoodInfo(true) || !updateFoodInfo(serving_id, newSize))
        LM_ASSERT(!"FDI::setSize - uFI failed!");
}

QList<FoodServing> FoodDiaryItem::getServings()
{
    loadFoodInfo(true);
    return _servings;
}

void FoodDiaryItem::scale(float factor)
{
    for (float &value : _nutrients) {
        if (isKnown(value))
            value *= factor;
    }
}

void FoodDiaryItem::add(const FoodDiaryItem &other)
{
    for (int i = 0; i < kNutrientCount; ++i) {
        if (isKnown(_nutrients[size_t(i)]) && isKnown(other._nutrients[size_t(i)]))
            _nutrients[size_t(i)] += other._nutrients[size_t(i)];
    }
}

bool FoodDiaryItem::loadFoodInfo(bool check)
{
    if (_loaded)
        return true;
    LM_ASSERT(ref_id >= 0);
    const FoodInfoSource *source = FoodInfoSource::instance();
    LM_ASSERT(source);

    QString name;
    if (!source->foodName(ref_id, &name) || (check && name != food_name))
        return false;
    FoodReference reference;
    if (!source->foodReference(ref_id, &reference))
        return false;
    QList<FoodServing> servings = source->foodServings(ref_id);
    if (reference.baseQuantity > 0.0f) {
        const std::optional<FoodServing> millilitres =
            reference.measureKind == 'M' ? millilitresOf(servings) : std::nullopt;
        servings += genericServings(reference.measureKind);
        if (millilitres)
            servings.append(*millilitres);
    }

    if (check) {
        const auto it = std::find_if(servings.cbegin(), servings.cend(),
                                     [this](const FoodServing &s) { return s.id == serving_id; });
        if (it == servings.cend() || it->name != serv_name)
            return false;
    } else {
        if (servings.isEmpty())
            return false;
        serving_id = servings.constFirst().id;
    }

    // Only a complete load marks the entry loaded, so a failed check leaves it as it was.
    _loaded = true;
    food_name = name;
    _reference = reference;
    _servings = servings;
    if (!updateFoodInfo(serving_id, size))
        LM_ASSERT(!"loadFoodInfo: updateFoodInfo failed!");
    return true;
}

bool FoodDiaryItem::updateFoodInfo(int servingId, float newSize)
{
    const auto it = std::find_if(_servings.cbegin(), _servings.cend(),
                                 [servingId](const FoodServing &s) { return s.id == servingId; });
    if (it == _servings.cend())
        return false;
    serving_id = servingId;
    size = newSize;
    _nutrients = _reference.nutrients;
    if (_reference.baseQuantity > 0.0f)
        scale(it->quantity / _reference.baseQuantity * newSize);
    serv_name = it->name;
    return true;
}

float DiaryDay::total(int grp, int nutType) const
{
    LM_ASSERT(!(grp == EXERCISE && nutType != ENERGY));
    float burned = 0.0f;
    if (nutType == ENERGY && (grp == ALL_MEALS || grp == EXERCISE)) {
        for (const ExerciseDiaryItem &exercise : exercises) {
            const float energy = exercise.energy();
            if (energy > 0.0f)
                burned += energy;
        }
    }
    if (grp == EXERCISE)
        return burned;
    float eaten = 0.0f;
    for (const FoodDiaryItem &food : foods) {
        if (grp != ALL_MEALS && food.meal != grp && !(grp == ALL_SNACKS && isSnack(food.meal)))
            continue;
        const float value = food.getNutrient(nutType);
        if (value > 0.0f)
            eaten += value;
    }
    return eaten - burned;
}
