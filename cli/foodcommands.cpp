// Foods and exercises: search, show, custom items, favourites, and logging them in the diary.

#include "cli/commands.h"
#include "cli/session.h"

#include "db/diarydb.h"
#include "db/diaryedits.h"
#include "db/lmsqldb.h"
#include "db/savedmealdb.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/quantitytext.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <functional>
#include <memory>

namespace Cli {
namespace {

QString number(double value)
{
    return QLocale::c().toString(value, 'g', 6);
}

// The category a new custom item goes to: --category, else the profile's (or with --shared the
// shared) root, made when it is missing.
int customCategory(const Arguments &a, int userId, bool exercises)
{
    if (a.has(QStringLiteral("--category"))) {
        const int category = parseInteger(a.value(QStringLiteral("--category")), QStringLiteral("--category"),
                                          kFirstCustomId, kIdLimit - 1);
        const QString name = exercises ? ExDBDynamic(userId).categoryName(category)
                                       : FoodDBDynamic(userId).categoryName(category);
        if (name.isNull())
            usageError(QStringLiteral("--category: no category %1").arg(category));
        return category;
    }
    const int owner = a.has(QStringLiteral("--shared")) ? -1 : userId;
    return exercises ? ExDBDynamic::userRootId(owner) : FoodDBDynamic::userRootId(owner);
}

QString kindName(bool exercise)
{
    return exercise ? QStringLiteral("exercise") : QStringLiteral("food");
}

bool parseKind(const QString &text)
{
    if (text == QLatin1String("food"))
        return false;
    if (text == QLatin1String("exercise"))
        return true;
    usageError(QStringLiteral("'%1' is neither food nor exercise").arg(text));
}

int parseItemId(const QString &text, const QString &what)
{
    return parseInteger(text, what, 0, kIdLimit - 1);
}

// The name of an existing food or exercise; a usage error for an id that is neither.
QString itemName(int userId, bool exercise, int id)
{
    if (exercise) {
        Exercise found;
        if (!ExDB(userId).exercise(id, &found))
            usageError(QStringLiteral("no exercise %1").arg(id));
        return found.name;
    }
    const FoodDB foods(userId);
    if (!foods.contains(id))
        usageError(QStringLiteral("no food %1").arg(id));
    return foods.name(id);
}

// Saved meals the profile can use: its own, then the shared ones.
QList<QPair<int, QString>> savedMeals(int userId)
{
    return SavedMealDB::getMeals(SavedMealDB::categoryOf(userId)) +
           SavedMealDB::getMeals(SavedMealDB::kSharedCategory);
}

QPair<int, QString> findSavedMeal(int userId, const QString &text)
{
    bool isNumber = false;
    const int id = text.toInt(&isNumber);
    for (const auto &meal : savedMeals(userId)) {
        if ((isNumber && meal.first == id) || meal.second == text)
            return meal;
    }
    usageError(QStringLiteral("no saved meal '%1'").arg(text));
}

} // namespace

int search(Context &context, const QStringList &args)
{
    const QString usage = QStringLiteral("search [--exercises] [--limit N] [--tree] WORDS...");
    const Arguments a(args, {QStringLiteral("--limit")},
                      {QStringLiteral("--exercises"), QStringLiteral("--tree")});
    a.expectPositionals(1, 1000, usage);
    const QString query = a.positionals().join(QLatin1Char(' '));
    if (splitSearchWords(query).size() > 31)
        usageError(QStringLiteral("a search takes at most 31 words"));
    if (longestSearchWord(query) < kShortestSearchWord)
        usageError(QStringLiteral("the longest search word needs at least 3 characters"));
    const bool tree = a.has(QStringLiteral("--tree"));
    const int limit = a.has(QStringLiteral("--limit")) ? parseInteger(a.value(QStringLiteral("--limit")),
                                                                      QStringLiteral("--limit"), 1, 1000000)
                      : tree                           ? 1000000
                                                       : 25;
    const bool exercises = a.has(QStringLiteral("--exercises"));
    // As the program's search reads it: a count before the words ("2 eggs", "30 walking") is how
    // many or how long, not a word to find.
    const QString words = exercises ? leadingMinutes(query).rest : leadingAmount(query).rest;

    const Session session(context);
    const int userId = session.userId();
    applyDisplayUnits(userId);
    const SearchHistory history = loadSearchHistory(userId, exercises);
    const SearchOrder order = tree ? SearchOrder::Tree : SearchOrder::Ranked;
    ItemSearchResult result;
    QList<ItemEnergy> energies;
    if (exercises) {
        ExDB db(userId);
        result = searchItems(*db.staticDB(), db.dynamicDB(), words, history, limit, order);
        const double weight =
            DiaryEdits::weightInForce(userId, DateConversion::fromQDate(QDate::currentDate())).value_or(0.0);
        for (const FoundItem &item : std::as_const(result.items)) {
            Exercise found;
            db.exercise(item.id, &found);
            energies.append(exerciseEnergy(found.scale, weight));
        }
    } else {
        FoodDB db(userId);
        result = searchItems(*db.staticDB(), db.dynamicDB(), words, history, limit, order);
        for (const FoundItem &item : std::as_const(result.items))
            energies.append(foodEnergy(item.id));
    }
    if (result.items.isEmpty())
        printNote(QStringLiteral("No matches for \"%1\"").arg(words));
    else if (const QString note = result.closeMatchNote(words); !note.isEmpty())
        printNote(note);

    if (context.options.json) {
        QJsonArray items;
        for (qsizetype i = 0; i < result.items.size(); ++i) {
            const FoundItem &item = result.items.at(i);
            QJsonObject object{{QStringLiteral("id"), item.id},
                               {QStringLiteral("name"), item.name},
                               {QStringLiteral("kind"),
                                item.custom ? QStringLiteral("custom") : QStringLiteral("reference")}};
            if (energies.at(i).known) {
                object.insert(QStringLiteral("serving"), energies.at(i).per);
                object.insert(QStringLiteral("calories"), std::round(energies.at(i).calories * 10.0) / 10.0);
            }
            if (item.close)
                object.insert(QStringLiteral("close"), true);
            items.append(object);
        }
        printJson(QJsonDocument(items).toJson(QJsonDocument::Indented));
    } else {
        for (qsizetype i = 0; i < result.items.size(); ++i) {
            const FoundItem &item = result.items.at(i);
            printLine(QStringLiteral("%1\t%2\t%3")
                          .arg(item.id)
                          .arg(escapeField(item.name), escapeField(describeEnergy(energies.at(i)))));
        }
    }
    return Success;
}

int food(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("food ID"));
    const int id = parseItemId(a.positionals().constFirst(), QStringLiteral("ID"));
    const Session session(context);
    const int userId = session.userId();
    applyDisplayUnits(userId);
    const FoodDB foods(userId);
    Food info;
    if (!foods.contains(id) || !foods.food(id, &info))
        usageError(QStringLiteral("no food %1").arg(id));
    QString source;
    if (!FoodDB::isCustom(id)) {
        source = QStringLiteral("%1 %2")
                     .arg(foods.staticDB()->secondText(id))
                     .arg(foods.staticDB()->numericAttribute(id), 5, 10, QLatin1Char('0'));
    }

    // Every serving the diary offers, with the values of one of it.
    FoodDiaryItem item;
    item.changeFood(id);
    const QList<FoodServing> servings = item.getServings();
    const QString unit = info.measureKind == 'V' ? QStringLiteral("mL") : QStringLiteral("g");
    if (context.options.json) {
        QJsonArray list;
        for (const FoodServing &serving : servings) {
            item.setServing(serving.id);
            QJsonObject s{{QStringLiteral("id"), serving.id}, {QStringLiteral("name"), serving.name}};
            if (info.measureKind != 'S')
                s.insert(QStringLiteral("size"), double(serving.quantity));
            s.insert(QStringLiteral("nutrients"), nutrientsJson(item.nutrients()));
            list.append(s);
        }
        QJsonObject document{{QStringLiteral("id"), id},
                             {QStringLiteral("name"), info.name},
                             {QStringLiteral("custom"), FoodDB::isCustom(id)},
                             {QStringLiteral("servings"), list}};
        if (!source.isEmpty())
            document.insert(QStringLiteral("source"), source);
        printJson(QJsonDocument(document).toJson(QJsonDocument::Indented));
        return Success;
    }
    printLine(QStringLiteral("%1\t%2").arg(id).arg(escapeField(info.name)));
    if (!source.isEmpty())
        printLine(QStringLiteral("Source\t") + source);
    for (const FoodServing &serving : servings) {
        item.setServing(serving.id);
        const QString size =
            info.measureKind == 'S' ? QString() : number(double(serving.quantity)) + QLatin1Char(' ') + unit;
        printLine(QStringLiteral("  %1\t%2\t%3\t").arg(serving.id).arg(escapeField(serving.name), size) +
                  nutrientsText(item.nutrients()));
    }
    return Success;
}

int exercise(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("exercise ID"));
    const int id = parseItemId(a.positionals().constFirst(), QStringLiteral("ID"));
    const Session session(context);
    const int userId = session.userId();
    applyDisplayUnits(userId);
    Exercise found;
    if (!ExDB(userId).exercise(id, &found))
        usageError(QStringLiteral("no exercise %1").arg(id));
    const double met = double(found.scale) / double(kCaloriesPerMetMinuteKg);
    const auto weight = UserDB::getLatest(QStringLiteral("user_checkins"), QStringLiteral("weight"), userId,
                                          DateConversion::fromQDate(QDate::currentDate()), -1);
    if (context.options.json) {
        QJsonObject document{{QStringLiteral("id"), id},
                             {QStringLiteral("name"), found.name},
                             {QStringLiteral("met"), std::round(met * 1000.0) / 1000.0},
                             {QStringLiteral("rate"), double(found.scale)}};
        if (weight)
            document.insert(QStringLiteral("caloriesPerHour"), double(found.scale) * weight->first * 60.0);
        printJson(QJsonDocument(document).toJson(QJsonDocument::Indented));
        return Success;
    }
    printLine(QStringLiteral("%1\t%2").arg(id).arg(escapeField(found.name)));
    printLine(QStringLiteral("MET\t") + QLocale::c().toString(met, 'f', 1));
    if (weight) {
        const DisplayUnits units = DisplayUnits::of(userId);
        printLine(QStringLiteral("Per hour at %1\t%2")
                      .arg(units.weight().formatValueWithUnit(weight->first),
                           UnitRegistry::instance()
                               .getUnit(UNIT_ENERGY)
                               ->formatValueWithUnit(double(found.scale) * weight->first * 60.0)));
    }
    return Success;
}

int foodAdd(Context &context, const QStringList &args)
{
    const QStringList nutrientOptions = {
        QStringLiteral("--carb"),   QStringLiteral("--fat"),    QStringLiteral("--protein"),
        QStringLiteral("--fiber"),  QStringLiteral("--satfat"), QStringLiteral("--cholesterol"),
        QStringLiteral("--sodium"), QStringLiteral("--sugar"),  QStringLiteral("--calcium")};
    const Arguments a(args,
                      QStringList{QStringLiteral("--name"), QStringLiteral("--serving"),
                                  QStringLiteral("--calories"), QStringLiteral("--category")} +
                          nutrientOptions,
                      {QStringLiteral("--shared")});
    a.expectPositionals(0, 0, QStringLiteral("food-add --name N --serving S --calories X [...]"));
    const QString name = a.value(QStringLiteral("--name")).trimmed();
    const QString serving = a.value(QStringLiteral("--serving")).trimmed();
    if (name.isEmpty() || serving.isEmpty() || !a.has(QStringLiteral("--calories")))
        usageError(QStringLiteral("food-add needs --name, --serving and --calories"));

    const Session session(context);
    const int userId = session.userId();
    const DisplayUnits units = DisplayUnits::of(userId);
    std::array<float, kNutrientCount> nutrients;
    nutrients.fill(kUnknownNutrient);
    const double shownCalories =
        parseNumber(a.value(QStringLiteral("--calories")), QStringLiteral("--calories"), 0,
                    units.energy().toDisplay(100000));
    nutrients[ENERGY] = float(units.energy().fromDisplayValue(shownCalories));
    // Options in model order after energy.
    for (int type = CARB; type < kNutrientCount; ++type) {
        const QString option = nutrientOptions.at(type - 1);
        if (a.has(option))
            nutrients[size_t(type)] = float(parseNumber(a.value(option), option, 0, 100000));
    }
    const int category = customCategory(a, userId, false);
    FoodDBDynamic foods(userId);
    const int id = foods.addFood(name, serving, Food::fromNutrients(nutrients), category);
    if (id < 0)
        failure(QStringLiteral("the food could not be stored"));
    printLine(QString::number(id));
    return Success;
}

int exerciseAdd(Context &context, const QStringList &args)
{
    const Arguments a(args, {QStringLiteral("--name"), QStringLiteral("--met"), QStringLiteral("--category")},
                      {QStringLiteral("--shared")});
    a.expectPositionals(0, 0, QStringLiteral("exercise-add --name N --met M [--category ID] [--shared]"));
    const QString name = a.value(QStringLiteral("--name")).trimmed();
    if (name.isEmpty() || !a.has(QStringLiteral("--met")))
        usageError(QStringLiteral("exercise-add needs --name and --met"));
    const double met = parseNumber(a.value(QStringLiteral("--met")), QStringLiteral("--met"), 0.5, 30);
    const Session session(context);
    const int userId = session.userId();
    const int category = customCategory(a, userId, true);
    ExDBDynamic exercises(userId);
    const int id = exercises.addExercise(category, name, float(met) * kCaloriesPerMetMinuteKg);
    if (id < 0)
        failure(QStringLiteral("the exercise could not be stored"));
    printLine(QString::number(id));
    return Success;
}

namespace {

int removeCustom(Context &context, const QStringList &args, bool exercise)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, kindName(exercise) + QStringLiteral("-remove ID"));
    const int id = parseItemId(a.positionals().constFirst(), QStringLiteral("ID"));
    if (id < kFirstCustomId)
        usageError(QStringLiteral("%1 %2 is a reference item and cannot be removed")
                       .arg(kindName(exercise))
                       .arg(id));
    const Session session(context);
    const int userId = session.userId();
    bool removed = false;
    if (exercise) {
        ExDBDynamic db(userId);
        Exercise found;
        if (!db.exercise(id, &found))
            usageError(QStringLiteral("no custom exercise %1").arg(id));
        removed = db.deleteItem(id);
    } else {
        FoodDBDynamic db(userId);
        if (!db.contains(id))
            usageError(QStringLiteral("no custom food %1").arg(id));
        removed = db.deleteItem(id);
    }
    if (!removed)
        failure(QStringLiteral("the %1 could not be removed").arg(kindName(exercise)));
    if (!Favorites::remove(userId, exercise ? Favorites::EXERCISES : Favorites::FOODS, id))
        failure(QStringLiteral("the %1 was removed, but not from the favourites").arg(kindName(exercise)));
    return Success;
}

} // namespace

int foodRemove(Context &context, const QStringList &args)
{
    return removeCustom(context, args, false);
}

int exerciseRemove(Context &context, const QStringList &args)
{
    return removeCustom(context, args, true);
}

int favorite(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    const QString usage =
        QStringLiteral("favorite add|remove food|exercise ID | favorite list food|exercise");
    a.expectPositionals(2, 3, usage);
    const QString action = a.positionals().at(0);
    const bool exercise = parseKind(a.positionals().at(1));
    const int type = exercise ? Favorites::EXERCISES : Favorites::FOODS;
    if (action == QLatin1String("list")) {
        a.expectPositionals(2, 2, usage);
        const Session session(context);
        const int userId = session.userId();
        QJsonArray items;
        for (const int id : Favorites::list(userId, type)) {
            // A favourite whose item has gone (a removed custom item, a database update) is skipped.
            QString name;
            if (exercise) {
                Exercise found;
                if (!ExDB(userId).exercise(id, &found))
                    continue;
                name = found.name;
            } else {
                const FoodDB foods(userId);
                if (id < 0 || id >= kIdLimit || !foods.contains(id))
                    continue;
                name = foods.name(id);
            }
            if (context.options.json)
                items.append(QJsonObject{{QStringLiteral("id"), id}, {QStringLiteral("name"), name}});
            else
                printLine(QStringLiteral("%1\t%2").arg(id).arg(escapeField(name)));
        }
        if (context.options.json)
            printJson(QJsonDocument(items).toJson(QJsonDocument::Indented));
        return Success;
    }
    if (action != QLatin1String("add") && action != QLatin1String("remove"))
        usageError(usage);
    a.expectPositionals(3, 3, usage);
    const int id = parseItemId(a.positionals().at(2), QStringLiteral("ID"));
    const Session session(context);
    const int userId = session.userId();
    const bool present = Favorites::contains(userId, type, id);
    if (action == QLatin1String("add")) {
        itemName(userId, exercise, id);
        if (!present && !Favorites::add(userId, type, id))
            failure(QStringLiteral("the favourite could not be stored"));
    } else {
        if (!present)
            usageError(QStringLiteral("%1 %2 is not a favourite").arg(kindName(exercise)).arg(id));
        if (!Favorites::remove(userId, type, id))
            failure(QStringLiteral("the favourite could not be removed"));
    }
    return Success;
}

ServingChoice chooseServing(const FoodDB &foods, int foodId, const QString &wanted)
{
    Food info;
    if (!foods.contains(foodId) || !foods.food(foodId, &info))
        usageError(QStringLiteral("no food %1").arg(foodId));
    if (info.servings.isEmpty() &&
        (info.referenceQuantity <= 0.0f || genericServings(info.measureKind).isEmpty()))
        usageError(QStringLiteral("food %1 has no serving to log").arg(foodId));
    FoodDiaryItem probe; // the servings an entry of it offers
    probe.changeFood(foodId);
    const QList<FoodServing> servings = probe.getServings();
    if (wanted.isEmpty())
        return preferredServing(servings); // the serving search counts each food in
    bool isNumber = false;
    const int servingId = wanted.toInt(&isNumber);
    const auto it = std::find_if(servings.cbegin(), servings.cend(), [&](const FoodServing &s) {
        return (isNumber && s.id == servingId) || s.name.compare(wanted, Qt::CaseInsensitive) == 0;
    });
    if (it == servings.cend())
        usageError(QStringLiteral("--serving: food %1 has no serving '%2'").arg(foodId).arg(wanted));
    return {it->id, 1.0f};
}

int logFood(Context &context, const QStringList &args)
{
    const Arguments a(args, {QStringLiteral("--serving"), QStringLiteral("--qty")});
    a.expectPositionals(3, 3, QStringLiteral("log-food DATE MEAL FOOD_ID [--serving ID|NAME] [--qty Q]"));
    const QString day = dayArgument(a.positionals().at(0));
    const int meal = parseMeal(a.positionals().at(1));
    const int id = parseItemId(a.positionals().at(2), QStringLiteral("FOOD_ID"));
    const float qty =
        a.has(QStringLiteral("--qty"))
            ? float(parseNumber(a.value(QStringLiteral("--qty")), QStringLiteral("--qty"), 0.001, 100000))
            : 1.0f;

    const Session session(context);
    const int userId = session.userId();
    const FoodDB foods(userId); // the food information of the entry, while it is made
    const ServingChoice chosen = chooseServing(foods, id, a.value(QStringLiteral("--serving")));
    FoodDiaryItem item;
    if (!DiaryEdits::logFood(userId, day, meal, id, chosen.servingId,
                             a.has(QStringLiteral("--qty")) ? qty : chosen.size, &item))
        failure(QStringLiteral("the entry could not be stored (%1)").arg(LmSqlDb::lastErrorText()));
    printLine(QString::number(item.food_id));
    return Success;
}

int logExercise(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(3, 3, QStringLiteral("log-exercise DATE EXERCISE_ID MINUTES"));
    const QString day = dayArgument(a.positionals().at(0));
    const int id = parseItemId(a.positionals().at(1), QStringLiteral("EXERCISE_ID"));
    const double minutes = parseNumber(a.positionals().at(2), QStringLiteral("MINUTES"), 1, 1440);
    const Session session(context);
    const int userId = session.userId();
    Exercise found;
    if (!ExDB(userId).exercise(id, &found))
        usageError(QStringLiteral("no exercise %1").arg(id));
    ExerciseDiaryItem item;
    switch (DiaryEdits::logExercise(userId, day, found.name, found.scale, float(minutes), &item)) {
    case DiaryEdits::Logged::NoWeight:
        usageError(QStringLiteral("no weight recorded on or before %1; record one with checkin first")
                       .arg(DateConversion::toWebDate(day)));
    case DiaryEdits::Logged::NotStored:
        failure(QStringLiteral("the entry could not be stored (%1)").arg(LmSqlDb::lastErrorText()));
    case DiaryEdits::Logged::Stored:
        break;
    }
    printLine(QString::number(item.ex_id));
    return Success;
}

int removeEntry(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(2, 2, QStringLiteral("remove food|exercise ENTRY_ID"));
    const bool exercise = parseKind(a.positionals().at(0));
    const int id =
        parseInteger(a.positionals().at(1), QStringLiteral("ENTRY_ID"), 0, std::numeric_limits<int>::max());
    const Session session(context);
    const int userId = session.userId();
    storeOrFail([&] {
        const DiaryEdits::Edited removed = DiaryEdits::removeEntry(
            userId, exercise ? DiaryEdits::Kind::Exercise : DiaryEdits::Kind::Food, id);
        if (removed == DiaryEdits::Edited::Nothing)
            usageError(QStringLiteral("no %1 entry %2").arg(kindName(exercise)).arg(id));
        return removed == DiaryEdits::Edited::Stored;
    });
    return Success;
}

int mealSave(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(3, 3, QStringLiteral("meal-save NAME DATE MEAL"));
    const QString name = a.positionals().at(0).trimmed();
    if (name.isEmpty())
        usageError(QStringLiteral("a saved meal needs a name"));
    const QString day = dayArgument(a.positionals().at(1));
    const int meal = parseMeal(a.positionals().at(2));
    const Session session(context);
    const int userId = session.userId();
    for (const auto &existing : savedMeals(userId)) {
        if (existing.second == name)
            usageError(QStringLiteral("there is already a saved meal '%1'").arg(name));
    }
    SavedMeal saved;
    saved.user_id = userId;
    saved.name = name;
    for (const FoodDiaryItem &food : DiaryDB().getDay(userId, day).foods) {
        if (food.meal == meal && food.status == STATUS_LIVE)
            saved.foods.append(food);
    }
    if (saved.foods.isEmpty())
        usageError(QStringLiteral("%1 of %2 has no foods to save")
                       .arg(mealName(meal, 1), DateConversion::toWebDate(day)));
    const int id = SavedMealDB::createMeal(saved);
    if (id < 0)
        failure(QStringLiteral("the meal could not be saved"));
    printLine(QString::number(id));
    return Success;
}

int mealList(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(0, 0, QStringLiteral("meal-list"));
    const Session session(context);
    const int userId = session.userId();
    const QList<QPair<int, QString>> own = SavedMealDB::getMeals(SavedMealDB::categoryOf(userId));
    const QList<QPair<int, QString>> shared = SavedMealDB::getMeals(SavedMealDB::kSharedCategory);
    QJsonArray items;
    for (const auto &list : {own, shared}) {
        for (const auto &meal : list) {
            const qsizetype count = SavedMealDB::getMealFoods(meal.first).size();
            if (context.options.json) {
                items.append(QJsonObject{{QStringLiteral("id"), meal.first},
                                         {QStringLiteral("name"), meal.second},
                                         {QStringLiteral("foods"), count},
                                         {QStringLiteral("shared"), &list == &shared}});
            } else {
                printLine(QStringLiteral("%1\t%2\t%3 foods%4")
                              .arg(meal.first)
                              .arg(escapeField(meal.second))
                              .arg(count)
                              .arg(&list == &shared ? QStringLiteral("\tshared") : QString()));
            }
        }
    }
    if (context.options.json)
        printJson(QJsonDocument(items).toJson(QJsonDocument::Indented));
    return Success;
}

int mealAdd(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(3, 3, QStringLiteral("meal-add NAME|ID DATE MEAL"));
    const QString day = dayArgument(a.positionals().at(1));
    const int meal = parseMeal(a.positionals().at(2));
    const Session session(context);
    const int userId = session.userId();
    const QPair<int, QString> saved = findSavedMeal(userId, a.positionals().at(0));
    QList<FoodDiaryItem> added;
    storeOrFail([&] { return DiaryEdits::addSavedMeal(saved.first, userId, day, meal, &added); });
    for (const FoodDiaryItem &entry : std::as_const(added))
        printLine(QString::number(entry.food_id));
    return Success;
}

int mealRemove(Context &context, const QStringList &args)
{
    const Arguments a(args, {});
    a.expectPositionals(1, 1, QStringLiteral("meal-remove NAME|ID"));
    const Session session(context);
    const int userId = session.userId();
    const int mealId = findSavedMeal(userId, a.positionals().at(0)).first;
    storeOrFail([&] { return SavedMealDB::deleteMeal(mealId); });
    return Success;
}

} // namespace Cli
