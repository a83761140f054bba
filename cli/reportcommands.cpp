// report: the data series of a report over a range, with its table of figures.

#include "cli/commands.h"
#include "cli/session.h"

#include "reports/breakdownreport.h"
#include "reports/energyreport.h"
#include "reports/measurementsreport.h"
#include "reports/nutrientreport.h"
#include "reports/reportoutput.h"
#include "reports/stepsreport.h"
#include "reports/weightreport.h"

namespace Cli {
namespace {

const QString kUsage =
    QStringLiteral("report energy|nutrients|weight|measurements|steps|breakdown "
                   "[--from DATE --to DATE] [--nutrient NAME] [--json | --csv | --pdf FILE]");
const QStringList kReports = {QStringLiteral("energy"), QStringLiteral("nutrients"),
                              QStringLiteral("weight"), QStringLiteral("measurements"),
                              QStringLiteral("steps"),  QStringLiteral("breakdown")};
constexpr int kDefaultDays = 30;

ReportRange rangeOf(const Arguments &a)
{
    const QString fromOption = QStringLiteral("--from"), toOption = QStringLiteral("--to");
    const QDate to = a.has(toOption) ? parseDate(a.value(toOption), toOption) : QDate::currentDate();
    const QDate from =
        a.has(fromOption) ? parseDate(a.value(fromOption), fromOption) : to.addDays(1 - kDefaultDays);
    if (from > to)
        usageError(QStringLiteral("--from is after --to"));
    return ReportRange::between(from, to);
}

int nutrientOf(const Arguments &a, const QString &report)
{
    const QString option = QStringLiteral("--nutrient");
    if (!a.has(option))
        return ENERGY;
    if (report != QLatin1String("nutrients") && report != QLatin1String("breakdown"))
        usageError(QStringLiteral("--nutrient: the %1 report has no nutrient to choose").arg(report));
    const std::optional<int> type = nutrientFromKey(a.value(option));
    if (!type) {
        QStringList names;
        for (int t = 0; t < kNutrientCount; ++t)
            names << nutrientKey(t);
        usageError(QStringLiteral("--nutrient: unknown nutrient '%1' (one of %2)")
                       .arg(a.value(option), names.join(QStringLiteral(", "))));
    }
    return *type;
}

} // namespace

int report(Context &context, const QStringList &args)
{
    const QString pdfOption = QStringLiteral("--pdf"), csvFlag = QStringLiteral("--csv"),
                  jsonFlag = QStringLiteral("--json");
    const Arguments a(
        args, {QStringLiteral("--from"), QStringLiteral("--to"), QStringLiteral("--nutrient"), pdfOption},
        {jsonFlag, csvFlag});
    a.expectPositionals(1, 1, kUsage);
    const QString name = a.positionals().constFirst();
    if (!kReports.contains(name))
        usageError(
            QStringLiteral("unknown report '%1' (one of %2)").arg(name, kReports.join(QStringLiteral(", "))));
    const bool json = context.options.json || a.has(jsonFlag);
    if (int(json) + int(a.has(csvFlag)) + int(a.has(pdfOption)) > 1)
        usageError(QStringLiteral("choose one of --json, --csv and --pdf"));
    // Printed pages are drawn through a ReportLayout over a paint device; the tool has none yet.
    if (a.has(pdfOption))
        usageError(QStringLiteral("--pdf: printing reports is not available yet"));
    const ReportRange range = rangeOf(a);
    const int nutrient = nutrientOf(a, name);

    const Session session(context);
    const int userId = session.userId();
    applyDisplayUnits(userId);
    ReportDocument document;
    if (name == QLatin1String("energy"))
        document = EnergyReport(userId, range).document();
    else if (name == QLatin1String("nutrients"))
        document = NutrientReport(userId, range, nutrient).document();
    else if (name == QLatin1String("weight"))
        document = WeightReport(userId, range).document();
    else if (name == QLatin1String("measurements"))
        document = MeasurementsReport(userId, range).document();
    else if (name == QLatin1String("steps"))
        document = StepsReport(userId, range).document();
    else
        document = BreakdownReport(userId, range, nutrient).document();

    const ReportUnits units = ReportUnits::of(userId);
    if (json)
        printJson(reportJson(document));
    else if (a.has(csvFlag))
        printJson(reportCsv(document, units));
    else
        printLine(reportText(document, units).chopped(1));
    return Success;
}

} // namespace Cli
