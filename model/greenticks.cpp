#include "model/greenticks.h"

#include "model/modellog.h"
#include "model/unitdescriptor.h"

#include <cmath>

namespace {

constexpr float kTolerance = 100.0f; // calories, whatever the display unit

} // namespace

QString GreenTicks::pictureId() const
{
    return QStringLiteral("graphics_tick_%1_%2")
        .arg(foodTick ? QStringLiteral("yes") : QStringLiteral("no"),
             exerciseTick ? QStringLiteral("yes") : QStringLiteral("no"));
}

GreenTicks computeGreenTicks(const GreenTickFigures &f, const UnitDescriptor &unit)
{
    qCDebug(lcModel, "_applyFigures - calories %.1f / %.1f, exercise %.1f / %.1f", double(f.calories),
            double(f.caloriesTarget), double(f.exerciseMinutes), double(f.exerciseTarget));
    GreenTicks t;

    if (f.exerciseMinutes < f.exerciseTarget) {
        t.exerciseText = QStringLiteral("You need to exercise for another %1 minutes to earn a green tick for exercise.")
                             .arg(int(std::ceil(f.exerciseTarget - f.exerciseMinutes)));
    } else {
        t.exerciseTick = true;
        t.exerciseText = QStringLiteral("You've earnt a green tick for doing at least %1 minutes of exercise.")
                             .arg(int(f.exerciseTarget));
    }

    const QString e = unit.getName().toLower();
    float limit = -1.0f;
    if (f.budgetMode == 1) {
        if (f.caloriesTarget - kTolerance > f.calories) {
            t.foodText = QStringLiteral("If you eat between %1 and %2 more %3 today, you'll be close  enough to your "
                                        "target to earn a green tick for %4.")
                             .arg(unit.formatValue(f.caloriesTarget - kTolerance - f.calories),
                                  unit.formatValue(f.caloriesTarget + kTolerance - f.calories), e, e);
        } else if (f.caloriesTarget + kTolerance < f.calories) {
            t.foodText = QStringLiteral("You're currently %1 over your budget. You need to fall within %2 of your "
                                        "target to achieve a green tick for %3.")
                             .arg(unit.formatValueWithUnit(f.calories - f.caloriesTarget),
                                  unit.formatValueWithUnit(kTolerance), e);
            limit = f.caloriesTarget + kTolerance;
        } else {
            t.foodTick = true;
            t.foodText = QStringLiteral("You've earnt a green tick for coming within %1 of your net calorie budget.")
                             .arg(unit.formatValueWithUnit(kTolerance));
        }
    } else if (f.budgetMode == 0) {
        if (f.calories <= f.caloriesTarget) {
            t.foodTick = true;
            t.foodText =
                QStringLiteral("You're currently on track for a green tick for %1, if you stay within your budget.")
                    .arg(e);
        } else {
            t.foodText = QStringLiteral("You're currently missing out on a green tick, as you're %1 over your budget!")
                             .arg(unit.formatValueWithUnit(f.calories - f.caloriesTarget));
            limit = f.caloriesTarget;
        }
    }
    // Minutes are added to an energy excess here on purpose: the sum is the product's own rule.
    if (limit > 0 && (f.calories - limit + f.exerciseMinutes) < 200.0f) {
        t.foodText += QStringLiteral("\n\nYou could regain this green tick with an additional %1 of exercise.")
                          .arg(unit.formatValueWithUnit(f.calories - limit));
    }

    const QString prefix = t.foodTick || t.exerciseTick ? QStringLiteral("Congratulations! ") : QString();
    t.tooltip = t.exerciseTick && !t.foodTick ? prefix + t.exerciseText + QStringLiteral("\n\n") + t.foodText
                                              : prefix + t.foodText + QStringLiteral("\n\n") + t.exerciseText;
    qCDebug(lcModel, "foodtick: %s, foodtext: %s", t.foodTick ? "true" : "false", qUtf8Printable(t.foodText));
    qCDebug(lcModel, "exercisetick: %s, exercisetext: %s", t.exerciseTick ? "true" : "false",
            qUtf8Printable(t.exerciseText));
    return t;
}
