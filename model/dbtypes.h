#pragma once

// Diary entries: food entries filed under a meal and exercise entries, with their nutrient
// values, the serving arithmetic and a day's totals.
//
// A nutrient value is known only when it is greater than -0.01; -1 marks it unknown. Scaling,
// adding and totals skip unknown values. A food entry gets its serving list and per-serving
// values from the food database through FoodInfoSource; failures of that machinery are
// programming errors (assertions).

#include <QList>
#include <QString>
#include <QTime>

#include <array>
#include <optional>

// Nutrient types in the model's fixed order.
enum NutrientType {
    ENERGY = 0,
    CARB = 1,
    FAT = 2,
    PROTEIN = 3,
    FIBER = 4,
    SATURATED_FAT = 5,
    CHOLESTEROL = 6,
    SODIUM = 7,
    SUGAR = 8,
    CALCIUM = 9,
};
inline constexpr int kNutrientCount = 10;
inline constexpr float kUnknownNutrient = -1.0f;

inline bool isKnown(float value)
{
    return value > -0.01f;
}

// Meal codes as stored; 0 and -2 only as filters of sums (all meals, all snacks).
enum MealCode {
    ALL_MEALS = 0,
    BREAKFAST = 1,
    SNACK_1 = 2,
    LUNCH = 3,
    SNACK_2 = 4,
    DINNER = 5,
    SNACK_3 = 6,
    EXERCISE = 8,
    ALL_SNACKS = -2,
};

// The meal's display name for the user's snack mode (0 all snacks together, 1 between meals,
// 2 below meals); a null text for codes without a name.
QString mealName(int meal, int snackMode);
// The meal most people eat at that time of day: breakfast until ten, a morning snack until half
// past eleven, lunch until half past two, an afternoon snack until half past five, dinner until
// nine, then an evening snack until four in the morning.
int mealAtTime(const QTime &time);

// The meal groups in the order a snack mode shows them, each named by its last code: mode 1 puts
// each snack between the meals, mode 0 gathers all three snacks in one group, mode 2 lists them
// below the meals.
QList<QList<int>> mealGroups(int snackMode);

// Entry status as stored.
enum EntryStatus { STATUS_LIVE = 1, STATUS_DELETED = 2 };

struct FoodServing
{
    QString name;
    int id = 0;
    float quantity = 0.0f; // grams or millilitres per serving
};

// A food's reference values: per baseQuantity of the food, in nutrient-type order. Any value that
// is not isKnown() counts as unknown, -1 and the reference file's -999 alike.
struct FoodReference
{
    float baseQuantity = 0.0f;
    char measureKind = 'M'; // 'M' mass, 'V' volume
    std::array<float, kNutrientCount> nutrients{};
};

// Where food entries get their food information: the food database implements it.
class FoodInfoSource
{
public:
    virtual ~FoodInfoSource() = default;
    // False when the id is unknown.
    virtual bool foodName(int refId, QString *name) const = 0;
    virtual bool foodReference(int refId, FoodReference *reference) const = 0;
    virtual QList<FoodServing> foodServings(int refId) const = 0;

    // The process-wide source; the food database installs itself.
    static void setInstance(const FoodInfoSource *source);
    static const FoodInfoSource *instance();
};

// The servings every food with a base quantity offers besides its own: grams and ounces for 'M',
// millilitres and fluid ounces for 'V', none for any other kind.
QList<FoodServing> genericServings(char measureKind);

// A liquid weighed in grams (its measures in fluid ounces tell) is offered in millilitres too,
// at the density its measure gives; the serving of that.
inline constexpr int kMillilitreServing = -5;
inline constexpr double kMillilitresPerFluidOunce = 29.5735;
std::optional<FoodServing> millilitresOf(const QList<FoodServing> &servings);

// The serving a person most likely means by "one" of a food: a medium piece, else a cup, else the
// food's own first serving; a food measured only in grams or millilitres counts 100 of them.
struct ServingChoice
{
    int servingId = 0;
    float size = 1.0f;
};
ServingChoice preferredServing(const QList<FoodServing> &servings);
// The servings as a chooser lists them: a metric profile sees its own measure first (millilitres
// for a liquid, else grams).
QList<FoodServing> servingsInOrder(QList<FoodServing> servings, bool metric);

class FoodDiaryItem
{
public:
    // Nutrients start all unknown or all zero.
    explicit FoodDiaryItem(bool unknownNutrients = false);

    int food_id = -1; // row id; negative until stored
    int user_id = -1;
    QString food_name;
    QString serv_name;
    int ref_id = -1;
    int serving_id = 0;
    float size = 1.0f;
    QString date; // day string, empty for saved meals
    int meal = 0;
    int status = STATUS_LIVE;
    int group_id = -1; // saved meal the entry belongs to, -1 for none

    float getNutrient(int type) const;
    void setNutrient(int type, float value);
    const std::array<float, kNutrientCount> &nutrients() const { return _nutrients; }

    void setDate(const QString &newDate);

    // Serving machinery (needs FoodInfoSource::instance()).
    void changeFood(int refId);
    void setServing(int servingId);
    void setSize(float newSize);
    QList<FoodServing> getServings();
    bool isLoaded() const { return _loaded; }

    void scale(float factor);
    void add(const FoodDiaryItem &other);

    // Loads the food's name, reference values and servings. With check, the stored name and
    // serving must still match the food database.
    bool loadFoodInfo(bool check);
    // Recomputes the values for a serving and size; false (nothing changed) for an unknown
    // serving.
    bool updateFoodInfo(int servingId, float newSize);

private:
    std::array<float, kNutrientCount> _nutrients;
    bool _loaded = false;
    FoodReference _reference;
    QList<FoodServing> _servings;
};

class ExerciseDiaryItem
{
public:
    int ex_id = -1;
    int user_id = -1;
    QString date;
    float duration = 0.0f; // minutes
    float rate = 0.0f;     // calories per minute
    QString name;
    int status = STATUS_LIVE;

    float energy() const { return rate * duration; }
};

// One day of entries.
struct DiaryDay
{
    QList<FoodDiaryItem> foods;
    QList<ExerciseDiaryItem> exercises;

    // Total of a nutrient for a meal code, ALL_MEALS, ALL_SNACKS (meals 2, 4 and 6) or EXERCISE for
    // the energy burned. Energy over all meals is net of exercise.
    float total(int group, int type) const;
};
