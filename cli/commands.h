#pragma once

#include "cli/cli.h"
#include "model/dbtypes.h"

#include <span>

class FoodDB;

namespace Cli {

using CommandFunction = int (*)(Context &context, const QStringList &args);

struct Command
{
    const char *name;
    const char *synopsis; // arguments, for --help
    const char *group;
    CommandFunction run;
};

std::span<const Command> commands();
const Command *findCommand(const QString &name);

// The serving of a food that a command logs: the one named (by id or name), else the one search
// counts the food in. Refuses an unknown food or serving with a usage error.
ServingChoice chooseServing(const FoodDB &foods, int foodId, const QString &wanted);

// Commands, grouped by source file.
int brandDump(Context &context, const QStringList &args);
int profiles(Context &context, const QStringList &args);
int profileAdd(Context &context, const QStringList &args);
int profileSet(Context &context, const QStringList &args);
int checkin(Context &context, const QStringList &args);
int checkinRemove(Context &context, const QStringList &args);
int water(Context &context, const QStringList &args);
int target(Context &context, const QStringList &args);
int search(Context &context, const QStringList &args);
int food(Context &context, const QStringList &args);
int exercise(Context &context, const QStringList &args);
int foodAdd(Context &context, const QStringList &args);
int exerciseAdd(Context &context, const QStringList &args);
int foodRemove(Context &context, const QStringList &args);
int exerciseRemove(Context &context, const QStringList &args);
int favorite(Context &context, const QStringList &args);
int logFood(Context &context, const QStringList &args);
int logExercise(Context &context, const QStringList &args);
int removeEntry(Context &context, const QStringList &args);
int mealSave(Context &context, const QStringList &args);
int mealList(Context &context, const QStringList &args);
int mealAdd(Context &context, const QStringList &args);
int mealRemove(Context &context, const QStringList &args);
int publish(Context &context, const QStringList &args);
int mealplan(Context &context, const QStringList &args);
int metrics(Context &context, const QStringList &args);
int updateDb(Context &context, const QStringList &args);
int config(Context &context, const QStringList &args);
int day(Context &context, const QStringList &args);
int exportCommand(Context &context, const QStringList &args);
int summary(Context &context, const QStringList &args);
int report(Context &context, const QStringList &args);
int backup(Context &context, const QStringList &args);
int restore(Context &context, const QStringList &args);
int goal(Context &context, const QStringList &args);
int recipeAdd(Context &context, const QStringList &args);
int recipeList(Context &context, const QStringList &args);
int recipe(Context &context, const QStringList &args);
int recipeRemove(Context &context, const QStringList &args);
int logRecipe(Context &context, const QStringList &args);

} // namespace Cli
