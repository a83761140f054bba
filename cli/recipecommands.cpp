// Recipes: recipe-add, recipe-list, recipe, recipe-remove, log-recipe.

#include "cli/commands.h"
#include "cli/session.h"

#include "db/lmsqldb.h"
#include "db/recipedb.h"
#include "model/dateconversion.h"
#include "staticdb/fooddb.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

namespace Cli {
namespace {

QString number(double value)
{
    return QLocale::c().toString(value, 'g', 6);
}

Recipe findRecipe(int userId, const QString &text)
{
    const int id = parseInteger(text, QStringLiteral("RECIPE_ID"), 0, std::numeric_limits<int>::max());
    const auto recipe = RecipeDB::get(id, userId);
    if (!recipe)
        usageError(QStringLiteral("no recipe %1").arg(id));
    return *recipe;
}

// FOOD_ID:QTY[:SERVING], the serving by id or name.
FoodDiaryItem parseIngredient(const FoodDB &foods, const QString &text)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() < 2)
        usageError(QStringLiteral("'%1' is not FOOD_ID:QTY[:SERVING]").arg(text));
    const int foodId = parseInteger(parts.at(0), QStringLiteral("FOOD_ID"), 0, kIdLimit - 1);
    const double qty = parseNumber(parts.at(1), QStringLiteral("QTY"), 0.001, 100000);
    // A serving name may hold a colon of its own.
    const ServingChoice chosen = chooseServing(foods, foodId, parts.mid(2).join(QLatin1Char(':')));
    FoodDiaryItem item;
    item.changeFood(foodId);
    item.setServing(chosen.servingId);
    item.setSize(parts.size() > 2 ? float(qty) : float(qty) * chosen.size);
    return item;
}

} // namespace

int recipeAdd(Context &context, const QStringList &args)
{
    const Arguments a(
        args, {QStringLiteral("--name"), QStringLiteral("--portions"), QStringLiteral("--cooked-weight")},
        {QStringLiteral("--shared")});
    const QString usage = QStringLiteral(
        "recipe-add --name N --portions P [--cooked-weight G] [--shared] FOOD_ID:QTY[:SERVING]...");
    a.expectPositionals(1, 200, usage);
    if (!a.has(QStringLiteral("--name")) || !a.has(QStringLiteral("--portions")))
        usageError(usage);
    const Session session(context);
    const int userId = session.userId();
    Recipe recipe;
    recipe.name = a.value(QStringLiteral("--name")).trimmed();
    if (recipe.name.isEmpty())
        usageError(QStringLiteral("--name: a recipe needs a name"));
    recipe.user_id = a.has(QStringLiteral("--shared")) ? -1 : userId;
    recipe.portions =
        parseNumber(a.value(QStringLiteral("--portions")), QStringLiteral("--portions"), 0.1, 1000);
    if (a.has(QStringLiteral("--cooked-weight")))
        recipe.cookedWeight = parseNumber(a.value(QStringLiteral("--cooked-weight")),
                                          QStringLiteral("--cooked-weight"), 1, 100000);
    const FoodDB foods(userId);
    for (const QString &ingredient : a.positionals())
        recipe.ingredients.append(parseIngredient(foods, ingredient));
    if (!RecipeDB::save(recipe))
        failure(QStringLiteral("the recipe could not be stored (%1)").arg(LmSqlDb::lastErrorText()));
    printLine(QString::number(recipe.id));
    return Success;
}

int recipeList(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("recipe-list"));
    const Session session(context);
    const int userId = session.userId();
    const DisplayUnits units = DisplayUnits::of(userId);
    QJsonArray list;
    for (const auto &[id, name] : RecipeDB::list(userId)) {
        const auto recipe = RecipeDB::get(id, userId);
        if (!recipe)
            continue;
        const float energy = recipe->portion().getNutrient(ENERGY);
        if (context.options.json) {
            list.append(QJsonObject{{QStringLiteral("id"), id},
                                    {QStringLiteral("name"), name},
                                    {QStringLiteral("portions"), recipe->portions},
                                    {QStringLiteral("caloriesPerPortion"), energy}});
        } else {
            printLine(QStringLiteral("%1\t%2\t%3 portions\t%4 a portion")
                          .arg(id)
                          .arg(escapeField(name), number(recipe->portions),
                               units.energy().formatValueWithUnit(energy)));
        }
    }
    if (context.options.json)
        printJson(QJsonDocument(list).toJson(QJsonDocument::Compact));
    return Success;
}

int recipe(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("recipe ID"));
    const Session session(context);
    const int userId = session.userId();
    const Recipe recipe = findRecipe(userId, a.positionals().constFirst());
    if (context.options.json) {
        QJsonArray ingredients;
        for (const FoodDiaryItem &item : recipe.ingredients) {
            ingredients.append(QJsonObject{{QStringLiteral("food"), item.ref_id},
                                           {QStringLiteral("name"), item.food_name},
                                           {QStringLiteral("serving"), item.serv_name},
                                           {QStringLiteral("qty"), item.size},
                                           {QStringLiteral("nutrients"), nutrientsJson(item.nutrients())}});
        }
        QJsonObject document{{QStringLiteral("id"), recipe.id},
                             {QStringLiteral("name"), recipe.name},
                             {QStringLiteral("portions"), recipe.portions},
                             {QStringLiteral("ingredients"), ingredients},
                             {QStringLiteral("portion"), nutrientsJson(recipe.portion().nutrients())}};
        document.insert(QStringLiteral("cookedWeight"),
                        recipe.cookedWeight > 0 ? QJsonValue(recipe.cookedWeight) : QJsonValue());
        printJson(QJsonDocument(document).toJson(QJsonDocument::Compact));
        return Success;
    }
    printLine(QStringLiteral("%1\t%2").arg(recipe.id).arg(escapeField(recipe.name)));
    printLine(QStringLiteral("Portions\t") + number(recipe.portions));
    printLine(QStringLiteral("Cooked weight\t") + (recipe.cookedWeight > 0
                                                       ? number(recipe.cookedWeight) + QStringLiteral(" g")
                                                       : QStringLiteral("-")));
    for (const FoodDiaryItem &item : recipe.ingredients) {
        printLine(QStringLiteral("  %1\t%2\t%3 x %4\t")
                      .arg(item.ref_id)
                      .arg(escapeField(item.food_name), number(item.size), escapeField(item.serv_name)) +
                  nutrientsText(item.nutrients()));
    }
    printLine(QStringLiteral("Whole\t") + nutrientsText(recipe.whole().nutrients()));
    printLine(QStringLiteral("Portion\t") + nutrientsText(recipe.portion().nutrients()));
    return Success;
}

int recipeRemove(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("recipe-remove ID"));
    const Session session(context);
    const Recipe recipe = findRecipe(session.userId(), a.positionals().constFirst());
    storeOrFail([&] { return RecipeDB::remove(recipe.id); });
    return Success;
}

int logRecipe(Context &context, const QStringList &args)
{
    const Arguments a(args, {QStringLiteral("--portions"), QStringLiteral("--grams")});
    a.expectPositionals(3, 3, QStringLiteral("log-recipe DATE MEAL RECIPE_ID [--portions Q | --grams G]"));
    if (a.has(QStringLiteral("--portions")) && a.has(QStringLiteral("--grams")))
        usageError(QStringLiteral("give --portions or --grams, not both"));
    const QString day = dayArgument(a.positionals().at(0));
    const int meal = parseMeal(a.positionals().at(1));
    const Session session(context);
    const int userId = session.userId();
    const Recipe recipe = findRecipe(userId, a.positionals().at(2));
    double portions = 1.0, grams = 0.0;
    if (a.has(QStringLiteral("--grams"))) {
        if (!(recipe.cookedWeight > 0))
            usageError(QStringLiteral("recipe %1 has no cooked weight; log it in portions").arg(recipe.id));
        grams = parseNumber(a.value(QStringLiteral("--grams")), QStringLiteral("--grams"), 1, 100000);
        portions = 0.0;
    } else if (a.has(QStringLiteral("--portions"))) {
        portions =
            parseNumber(a.value(QStringLiteral("--portions")), QStringLiteral("--portions"), 0.01, 1000);
    }
    FoodDiaryItem entry;
    if (!RecipeDB::log(userId, day, meal, recipe, portions, grams, &entry))
        failure(QStringLiteral("the entry could not be stored (%1)").arg(LmSqlDb::lastErrorText()));
    printLine(QString::number(entry.food_id));
    return Success;
}

} // namespace Cli
