#include "model/summaryreport.h"

#include "common/lmassert.h"
#include "model/dateconversion.h"
#include "model/modellog.h"
#include "model/unitdescriptor.h"

namespace {

// Kilograms a month per calorie a day: about 30.44 days a month at about 7716 calories a kilogram.
constexpr double kKilogramsPerMonthPerCalorie = 0.003944634;

} // namespace

int reportedBmi(double weightKg, double height)
{
    LM_ASSERT(height);
    return int(weightKg * 10000.0 / (height * height) + 0.5);
}

QString bmiRiskWord(int bmi)
{
    if (bmi <= 18)
        return QStringLiteral(" (Underweight)");
    if (bmi <= 26)
        return QStringLiteral(" (low risk)");
    if (bmi <= 29)
        return QStringLiteral(" (medium risk)");
    if (bmi <= 40)
        return QStringLiteral(" (high risk)");
    return QStringLiteral(" (very high risk)");
}

double weightForBmi(double bmi, double heightCm)
{
    return heightCm * heightCm * bmi * double(0.0001f);
}

WeightForecast forecastWeight(double netEnergy, double requirement)
{
    double d = netEnergy - requirement;
    WeightForecast forecast{QStringLiteral("gain"), 0.0, 1};
    if (d < 0) {
        forecast.word = QStringLiteral("loss");
        d = -d;
    }
    double change = kKilogramsPerMonthPerCalorie * d;
    qCDebug(lcModel, "caldiff = %.2f, weightDifference = %.2f", d, change);
    if (change < double(0.33333334f)) {
        change *= 6;
        forecast.months = 6;
    } else if (change < 1.0) {
        change *= 3;
        forecast.months = 3;
    }
    forecast.change = change;
    return forecast;
}

QString summaryReport(const SummaryInputs &in, const UnitDescriptor &energy, const UnitDescriptor &weight,
                      const UnitDescriptor &length)
{
    QString html = QStringLiteral("<big><b>") + DateConversion::longDayName(in.day) + QStringLiteral("</b></big>");
    html += QStringLiteral("<p><p><table border=0 cellspacing=0 cellpadding=0>");
    const auto row = [&html](const char *label, const QString &value) {
        html += QStringLiteral("<tr><td><b>") + QLatin1String(label) + QStringLiteral("</b></td><td>") + value
                + QStringLiteral("</td></tr>");
    };
    if (in.weight >= 0)
        row("Weight:", weight.formatValueWithUnit(in.weight));
    if (in.chest >= 0)
        row("Chest:", length.formatValueWithUnit(in.chest));
    if (in.waist >= 0)
        row("Waist:", length.formatValueWithUnit(in.waist));
    if (in.hip >= 0)
        row("Hip:", length.formatValueWithUnit(in.hip));
    if (in.thigh >= 0)
        row("Thigh:", length.formatValueWithUnit(in.thigh));
    int bmi = 0;
    const bool weightKnown = in.weight >= 0 && in.height > 0;
    if (weightKnown) {
        bmi = reportedBmi(in.weight, in.height);
        row("BMI:", QString::number(bmi) + bmiRiskWord(bmi));
    }
    if (in.waist > 0 && in.hip > 0)
        row("Waist/Hip ratio:", QString::asprintf("%.2f", in.waist / in.hip));
    html += QStringLiteral("</table>");

    const double net = in.eaten - in.burned;
    html += QStringLiteral("<p>You've recorded <b>") + energy.formatSignedWithUnit(net);
    if (in.burned > 0.05) {
        html += QStringLiteral("</b> on this day (subtracting <b>") + energy.formatValueWithUnit(in.burned)
                + QStringLiteral("</b> burned from  <b>") + energy.formatValueWithUnit(in.eaten)
                + QStringLiteral("</b> eaten.)");
    } else {
        html += QStringLiteral("</b> on this day.");
    }
    if (in.target >= 0)
        html += QStringLiteral(" Your target was <b>") + energy.formatValueWithUnit(in.target) + QStringLiteral("</b>.");
    html += QStringLiteral("</p>");

    if (weightKnown && in.requirement > 0) {
        qCDebug(lcModel, "ree = %.2f", in.requirement);
        const WeightForecast forecast = forecastWeight(net, in.requirement);
        if (forecast.months == 6 && forecast.change < 1.0) {
            html += QStringLiteral("<p>An average person with these figures could expect to maintain their weight. "
                                   "Every person is different, so you should still weigh yourself from time to "
                                   "time.</p>");
        } else {
            const QString period =
                forecast.months > 1 ? QStringLiteral("%1 months").arg(forecast.months) : QStringLiteral("month");
            html += QStringLiteral("<p>On an average person, these figures would lead to a %1 of %2 over the next %3.</p>")
                        .arg(forecast.word, weight.formatValueWithUnit(forecast.change), period);
        }
    }
    if (weightKnown && bmi >= 21 && !in.leaveOutBmi20) {
        html += QStringLiteral("<p>To reach a BMI of 20, you need to lose %1.")
                    .arg(weight.formatValueWithUnit(in.weight - weightForBmi(20, in.height)));
    }
    return html;
}
