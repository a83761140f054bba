// report: the data series of a report over a range, with its table of figures.

#include "cli/commands.h"
#include "cli/session.h"

#include "reports/pagewriter.h"
#include "reports/reportbuild.h"
#include "reports/reportoutput.h"
#include "reports/reportpages.h"

#include <QFileInfo>
#include <QPdfWriter>

namespace Cli {
namespace {

const QString kUsage =
    QStringLiteral("report energy|nutrients|weight|measurements|steps|breakdown "
                   "[--from DATE --to DATE] [--nutrient NAME] [--json | --csv | --pdf FILE]");
const QStringList &kReports = kReportNames;
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
    const ReportRange range = rangeOf(a);
    const int nutrient = nutrientOf(a, name);

    const Session session(context);
    const int userId = session.userId();
    applyDisplayUnits(userId);
    const ReportDocument document = buildReport(name, userId, range, nutrient);
    const ReportUnits units = ReportUnits::of(userId);
    if (a.has(pdfOption)) {
        // The same pages as the desktop program's Export as PDF.
        const QString file = a.value(pdfOption);
        QPdfWriter pdf(file);
        pdf.setCreator(QStringLiteral("Tarnwell"));
        PageWriter::useA4(&pdf);
        if (!printReport(document, units, &pdf))
            failure(QStringLiteral("Cannot write %1.").arg(QFileInfo(file).absoluteFilePath()));
        printLine(QStringLiteral("Wrote %1.").arg(file));
    } else if (json)
        printJson(reportJson(document));
    else if (a.has(csvFlag))
        printJson(reportCsv(document, units));
    else
        printLine(reportText(document, units).chopped(1));
    return Success;
}

} // namespace Cli
