#include "reports/weightreport.h"

#include "db/goals.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "model/summaryreport.h"
#include "reports/energyreport.h"

#include <algorithm>

namespace {

// "low risk" -> "lowRiskFrom"
QString bandKey(const QString &name)
{
    QString key;
    for (const QString &word : name.split(QLatin1Char(' '), Qt::SkipEmptyParts))
        key += key.isEmpty() ? word.toLower() : word.left(1).toUpper() + word.mid(1).toLower();
    return key + QStringLiteral("From");
}

} // namespace

void WeightReport::smooth(QList<Weighing> &weighings)
{
    for (qsizetype i = 0; i < weighings.size(); ++i) {
        const double previous = i == 0 ? weighings[i].weight : weighings[i - 1].trend;
        weighings[i].trend = previous + kSmoothing * (weighings[i].weight - previous);
    }
}

QList<WeightReport::BmiBand> WeightReport::bandsAt(double heightCm)
{
    QList<BmiBand> bands;
    if (heightCm <= 0)
        return bands;
    // The reported BMI is rounded to a whole number, so a band whose first reported value is n
    // starts at a BMI of n - 0.5.
    const auto name = [](int bmi) {
        return bmiRiskWord(bmi).trimmed().remove(QLatin1Char('(')).remove(QLatin1Char(')'));
    };
    bands.append({name(0), std::nullopt, std::nullopt});
    for (int bmi = 1; bmi <= 100; ++bmi) {
        if (name(bmi) == bands.constLast().name)
            continue;
        const double edge = weightForBmi(bmi - 0.5, heightCm);
        bands.last().to = edge;
        bands.append({name(bmi), edge, std::nullopt});
    }
    return bands;
}

WeightReport::WeightReport(int userId, const ReportRange &range)
    : _range(range)
{
    const QString last = range.toDay();
    QList<Weighing> all;
    // Newest first from the store.
    const QList<CheckIn> checkIns = UserDB::getCheckIns(userId);
    for (auto it = checkIns.crbegin(); it != checkIns.crend(); ++it) {
        if (it->weight > 0 && it->date <= last)
            all.append(Weighing{DateConversion::toQDate(it->date), it->weight, 0.0});
    }
    smooth(all);
    std::copy_if(all.cbegin(), all.cend(), std::back_inserter(_weighings),
                 [&range](const Weighing &w) { return range.contains(w.date); });

    _goal = Goals::inForce(userId, last).weight;
    const double height = UserDB::getHeight(userId);
    _bands = bandsAt(height);

    if (all.isEmpty() || height <= 0)
        return;
    const std::optional<double> net = EnergyReport(userId, range).averageNet();
    UserProfile profile;
    for (const UserProfile &user : UserDB::getUsers()) {
        if (user.user_id == userId)
            profile = user;
    }
    const Weighing &latest = all.constLast();
    const QString weighedOn = DateConversion::fromQDate(latest.date);
    if (!net || profile.dob.size() != 8 || ageInYears(profile.dob, weighedOn) <= 0)
        return;
    // The requirement of the latest weighing's day, as the summary report has it.
    const float requirement =
        energyRequirement({float(latest.weight), weighedOn, UserDB::activityLevel(userId, weighedOn),
                           profile.sex, float(height), profile.dob});
    const WeightForecast change = forecastWeight(*net, requirement);
    const double signedChange = change.word == QLatin1String("loss") ? -change.change : change.change;
    _forecast = Forecast{range.to(), range.to().addMonths(change.months), latest.trend,
                         latest.trend + signedChange, change.months};
}

std::optional<double> WeightReport::weeklyRate() const
{
    if (_weighings.size() < 2)
        return std::nullopt;
    const Weighing &first = _weighings.constFirst();
    const Weighing &last = _weighings.constLast();
    return (last.trend - first.trend) * 7.0 / double(first.date.daysTo(last.date));
}

ReportDocument WeightReport::document() const
{
    ReportDocument document;
    document.report = QStringLiteral("weight");
    document.title = QStringLiteral("Weight");
    document.range = _range;
    ReportSeries weight{QStringLiteral("weight"), QStringLiteral("Weight"), Quantity::Weight};
    ReportSeries trend{QStringLiteral("trend"), QStringLiteral("Trend"), Quantity::Weight};
    for (const Weighing &w : _weighings) {
        weight.points.append({w.date, w.weight});
        trend.points.append({w.date, w.trend});
    }
    document.series = {weight, trend};
    if (_forecast) {
        ReportSeries line{QStringLiteral("forecast"), QStringLiteral("Forecast"), Quantity::Weight};
        line.points = {{_forecast->from, _forecast->fromWeight}, {_forecast->to, _forecast->toWeight}};
        line.summarised = false;
        document.series.append(line);
    }

    if (_goal) {
        document.figures.append(
            {QStringLiteral("goalWeight"), QStringLiteral("Goal weight"), Quantity::Weight, *_goal});
        document.figures.last().level = true;
    }
    if (const std::optional<double> rate = weeklyRate())
        document.figures.append(
            {QStringLiteral("weeklyRate"), QStringLiteral("Change a week"), Quantity::Weight, *rate});
    if (_forecast) {
        document.figures.append(
            {QStringLiteral("forecastChange"),
             QStringLiteral("Forecast change by %1").arg(_forecast->to.toString(Qt::ISODate)),
             Quantity::Weight, _forecast->toWeight - _forecast->fromWeight});
        document.figures.append({QStringLiteral("forecastMonths"), QStringLiteral("Forecast months"),
                                 Quantity::Count, double(_forecast->months)});
    }
    for (const BmiBand &band : _bands) {
        if (band.from) {
            document.figures.append({bandKey(band.name), QStringLiteral("BMI %1 from").arg(band.name),
                                     Quantity::Weight, *band.from});
            document.figures.last().level = true;
        }
    }
    return document;
}
