#pragma once

// Foods from two sources under one id space: the reference foods of the static file (ids below
// 0x1000000) and the user's own foods and categories in the user database (from 0x1000000;
// 0x1FFF000 + user id is a user's root "My Foods", 0x2000000 the shared root "Shared Foods").
// FoodDB routes by id and is the diary's FoodInfoSource.

#include "model/dbtypes.h"
#include "staticdb/dynamicdb.h"
#include "staticdb/staticdb.h"

#include <QList>
#include <QString>

#include <array>
#include <memory>

// A food's values in the order the food database delivers them.
enum FoodValue {
    FV_CALORIES = 0,
    FV_PROTEIN,
    FV_FAT,
    FV_CARB,
    FV_FIBER,
    FV_SATURATED_FAT,
    FV_CHOLESTEROL,
    FV_SODIUM,
    FV_SUGAR,
    FV_CALCIUM,
    FV_COUNT
};
inline constexpr float kAbsentValue = -999.0f;

struct Food
{
    QString name;
    std::array<float, FV_COUNT> values; // kAbsentValue where the source gives none
    char measureKind = 'S';
    float referenceQuantity = -1.0f; // what the values are given for; -1 when absent
    QList<FoodServing> servings;     // reference foods: by size ascending; custom foods: one

    Food() { values.fill(kAbsentValue); }
    // The values in the model's nutrient order, absent ones as unknown.
    std::array<float, kNutrientCount> nutrients() const;
    static std::array<float, FV_COUNT> fromNutrients(const std::array<float, kNutrientCount> &nutrients);
};

class FoodDBBase
{
public:
    virtual ~FoodDBBase() = default;
    virtual bool contains(int id) const = 0;
    virtual QString name(int id) const = 0;
    virtual bool food(int id, Food *food) const = 0;
    virtual QList<FoodServing> servings(int id) const = 0;
};

class FoodDBStatic : public FoodDBBase, public StaticDB
{
public:
    explicit FoodDBStatic(bool *failed = nullptr);

    bool contains(int id) const override;
    QString name(int id) const override; // asserts the food
    // Asserts the food; false for a payload that does not decode.
    bool food(int id, Food *food) const override;
    QList<FoodServing> servings(int id) const override;
    quint32 numericAttribute(int id) const;
    QString secondText(int id) const;

    // Decodes a food payload without reading outside it. Serving ids: bit n of seqMask set means
    // serving id n + 1 follows in file order; a mask that does not fit numbers them 1, 2, ...
    static bool decodePayload(QByteArrayView payload, quint32 seqMask, Food *food, quint32 *numeric = nullptr,
                              QString *secondText = nullptr);
};

class FoodDBDynamic : public FoodDBBase, public DynamicDB
{
public:
    static const Tables kTables;

    explicit FoodDBDynamic(int user_id);

    bool contains(int id) const override;
    QString name(int id) const override;
    // Per serving: one serving named by serv_name, id 0, reference quantity 1.
    bool food(int id, Food *food) const override;
    QList<FoodServing> servings(int id) const override;
    QString servingName(int id) const;
    int categoryOf(int id) const; // -1 for none

    // "My Foods" of a user, "Shared Foods" for -1; made when missing.
    static int userRootId(int user_id) { return DynamicDB::userRootId(kTables, user_id); }
    // Values per serving, in the order of Food::values. Returns the new id, -1 on failure.
    int addFood(const QString &name, const QString &servingName, const std::array<float, FV_COUNT> &values,
                int category);
    bool updateFood(int id, const QString &name, const QString &servingName,
                    const std::array<float, FV_COUNT> &values);

private:
    QVariant column(const char *name, int id) const;
};

// Favourites of a user: item type 1 foods, 2 exercises.
class Favorites
{
public:
    enum Type { FOODS = 1, EXERCISES = 2, NONE = 3 };
    // The type a search list's mode bits select.
    static int typeOf(int modeBits);

    static bool add(int user_id, int type, int item_id);
    static bool remove(int user_id, int type, int item_id);
    static bool contains(int user_id, int type, int item_id);
    static QList<int> list(int user_id, int type);
};

class FoodDB : public FoodInfoSource
{
public:
    // Opens the reference foods (fatal on failure unless failed is given) and the custom foods of
    // the user. Installs itself as the diary's food information while it lives.
    explicit FoodDB(int user_id, bool *failed = nullptr);
    ~FoodDB() override;

    FoodDBStatic *staticDB() const { return _static.get(); } // null when the file failed
    FoodDBDynamic *dynamicDB() const { return _dynamic.get(); }
    static bool isCustom(int id) { return id >= kFirstCustomId; }

    bool contains(int id) const;
    QString name(int id) const;
    bool food(int id, Food *food) const;
    QList<FoodServing> servings(int id) const;

    bool foodName(int refId, QString *name) const override;
    bool foodReference(int refId, FoodReference *reference) const override;
    QList<FoodServing> foodServings(int refId) const override;

private:
    const FoodDBBase *route(int id) const;

    std::unique_ptr<FoodDBStatic> _static;
    std::unique_ptr<FoodDBDynamic> _dynamic;
};
