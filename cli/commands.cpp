#include "cli/commands.h"

#include <array>

namespace Cli {
namespace {

constexpr std::array kCommands = {
    Command{"brand-dump", "FILE", "Branding", brandDump},

    Command{"profiles", "", "Profiles", profiles},
    Command{"profile-add",
            "--name N --sex male|female --born DATE --height H [--weight W] [--activity 0-3] "
            "[--units metric|imperial] [--energy calories|kilojoules]",
            "Profiles", profileAdd},
    Command{"profile-set",
            "[--units ...] [--energy ...] [--web-user U] [--web-password P] [--auto-publish yes|no] "
            "[--ask-before-publish yes|no] [--budget-mode 0|1] [--exercise-target MINUTES] "
            "[--snack-mode 0|1|2]",
            "Profiles", profileSet},

    Command{"checkin",
            "DATE [--weight W] [--chest C] [--waist W] [--hip H] [--thigh T] [--steps N] [--note TEXT]",
            "Daily records", checkin},
    Command{"checkin-remove", "DATE", "Daily records", checkinRemove},
    Command{"water", "DATE CUPS", "Daily records", water},
    Command{"target",
            "DATE [--calories N] [--carb G] [--fat G] [--protein G] [--fiber G] [--satfat G] "
            "[--cholesterol MG] [--sodium MG] [--sugar G] [--calcium MG]",
            "Daily records", target},

    Command{"goal",
            "[--weight W] [--rate R] [--calories N|auto] [--carb G|P%] [--fat G|P%] [--protein G|P%] "
            "[--water GLASSES] [--from DATE]",
            "Goals", goal},
    Command{"search", "[--exercises] [--limit N] [--tree] WORDS...", "Foods and exercises", search},
    Command{"food", "ID", "Foods and exercises", food},
    Command{"exercise", "ID", "Foods and exercises", exercise},
    Command{"food-add",
            "--name N --serving S --calories X [--carb G] [--fat G] [--protein G] [--fiber G] [--satfat G] "
            "[--cholesterol MG] [--sodium MG] [--sugar G] [--calcium MG] [--category ID] [--shared]",
            "Foods and exercises", foodAdd},
    Command{"exercise-add", "--name N --met M [--category ID] [--shared]", "Foods and exercises",
            exerciseAdd},
    Command{"food-remove", "ID", "Foods and exercises", foodRemove},
    Command{"exercise-remove", "ID", "Foods and exercises", exerciseRemove},
    Command{"favorite", "add|remove food|exercise ID | list food|exercise", "Foods and exercises", favorite},

    Command{"log-food", "DATE MEAL FOOD_ID [--serving ID|NAME] [--qty Q]", "Diary", logFood},
    Command{"log-exercise", "DATE EXERCISE_ID MINUTES", "Diary", logExercise},
    Command{"remove", "food|exercise ENTRY_ID", "Diary", removeEntry},
    Command{"day", "[DATE]", "Diary", day},
    Command{"meal-save", "NAME DATE MEAL", "Diary", mealSave},
    Command{"meal-list", "", "Diary", mealList},
    Command{"meal-add", "NAME|ID DATE MEAL", "Diary", mealAdd},
    Command{"meal-remove", "NAME|ID", "Diary", mealRemove},
    Command{"recipe-add", "--name N --portions P [--cooked-weight G] [--shared] FOOD_ID:QTY[:SERVING]...", "Diary",
            recipeAdd},
    Command{"recipe-list", "", "Diary", recipeList},
    Command{"recipe", "ID", "Diary", recipe},
    Command{"recipe-remove", "ID", "Diary", recipeRemove},
    Command{"log-recipe", "DATE MEAL RECIPE_ID [--portions Q | --grams G]", "Diary", logRecipe},

    Command{"summary", "[DATE]", "Reports and export", summary},
    Command{"export", "(--file F | --folder DIR | both) [--from DATE --to DATE] [--skip-empty]",
            "Reports and export", exportCommand},
    Command{"report",
            "energy|nutrients|weight|measurements|steps|breakdown [--from DATE --to DATE] [--nutrient NAME] "
            "[--json | --csv | --pdf FILE]",
            "Reports and export", report},

    Command{"publish", "", "Web", publish},
    Command{"mealplan", "", "Web", mealplan},
    Command{"update-db", "[--check]", "Web", updateDb},
    Command{"metrics", "", "Web", metrics},
    Command{"config", "server [URL | --unset]", "Web", config},

    Command{"backup", "FILE.tar", "Maintenance", backup},
    Command{"restore", "FILE.tar", "Maintenance", restore},
};

} // namespace

std::span<const Command> commands()
{
    return kCommands;
}

const Command *findCommand(const QString &name)
{
    for (const Command &command : kCommands) {
        if (name == QLatin1String(command.name))
            return &command;
    }
    return nullptr;
}

} // namespace Cli
