#pragma once

// The meal plan editor's food search in the server's reference database: the same file format,
// word search and ranking the desktop program uses, opened from a path of the server's (the
// program's own reader binds to its content folder): the plain file, or the compressed update the
// server publishes (".gz", inflated to a private copy). The file is mapped read-only and opened
// again when it changes, so a newly published database is searched without a restart. One search
// at a time: the word search marks its matches in the index.

#include "model/dbtypes.h"

#include <QList>
#include <QString>

#include <array>
#include <memory>
#include <optional>

struct PlannedFood;

struct ReferenceFood
{
    int id = -1;
    QString name;
    QList<FoodServing> servings; // the food's own by size, then grams/ounces or millilitres
    ServingChoice preferred;     // what "one" of it most likely is
    // Per reference quantity (or per serving when the food has none), in the model's nutrient
    // order; negative: not known.
    std::array<float, kNutrientCount> nutrients{};
    float referenceQuantity = -1.0f;
};

class WebFoodSearch
{
public:
    struct Found
    {
        int id = -1;
        QString name;
        bool close = false; // forgiving a typo, not a match of the words
    };

    // fallback is searched while path does not exist.
    explicit WebFoodSearch(const QString &path, const QString &fallback = QString());
    ~WebFoodSearch();
    WebFoodSearch(const WebFoodSearch &) = delete;
    WebFoodSearch &operator=(const WebFoodSearch &) = delete;

    // Whether the file opened (or is open and unchanged); why not in *error.
    bool available(QString *error = nullptr);
    // Best first, at most limit. *note (may be null) tells about close matches; a query whose
    // words are all too short finds nothing.
    QList<Found> search(const QString &query, int limit, QString *note = nullptr);
    std::optional<ReferenceFood> food(int id);

    // The plan entry for qty of a serving: name, serving name and the values of that amount (0 for
    // a value the food does not give).
    // False for a serving the food does not have or a quantity that is not a positive number.
    static bool planEntry(const ReferenceFood &food, int servingId, double qty, PlannedFood *entry);

private:
    bool openLocked(QString *error);

    struct Private;
    std::unique_ptr<Private> d;
};
