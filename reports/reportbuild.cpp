#include "reports/reportbuild.h"

#include "reports/breakdownreport.h"
#include "reports/energyreport.h"
#include "reports/measurementsreport.h"
#include "reports/nutrientreport.h"
#include "reports/stepsreport.h"
#include "reports/weightreport.h"

const QStringList kReportNames = {QStringLiteral("energy"), QStringLiteral("nutrients"),
                                  QStringLiteral("weight"), QStringLiteral("measurements"),
                                  QStringLiteral("steps"),  QStringLiteral("breakdown")};

ReportDocument buildReport(const QString &name, int userId, const ReportRange &range, int nutrient)
{
    if (name == QLatin1String("energy"))
        return EnergyReport(userId, range).document();
    if (name == QLatin1String("nutrients"))
        return NutrientReport(userId, range, nutrient).document();
    if (name == QLatin1String("weight"))
        return WeightReport(userId, range).document();
    if (name == QLatin1String("measurements"))
        return MeasurementsReport(userId, range).document();
    if (name == QLatin1String("steps"))
        return StepsReport(userId, range).document();
    return BreakdownReport(userId, range, nutrient).document();
}
