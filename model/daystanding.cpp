#include "model/daystanding.h"

#include "model/unitdescriptor.h"

#include <QCoreApplication>
#include <QLocale>

#include <cmath>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("DayStanding", text);
}

} // namespace

bool isLimit(int nutrientType)
{
    return nutrientType != FIBER && nutrientType != PROTEIN && nutrientType != CALCIUM;
}

DayStanding dayStanding(const DiaryDay &day, const std::array<double, kNutrientCount> &targets,
                        const QList<int> &tracked)
{
    DayStanding standing;
    standing.burned = day.total(EXERCISE, ENERGY);
    standing.eaten = day.total(ALL_MEALS, ENERGY) + standing.burned;
    standing.budget = float(targets[ENERGY]);
    const std::array<float, 3> calories = {day.total(ALL_MEALS, CARB) * 4.0f,
                                           day.total(ALL_MEALS, FAT) * 9.0f,
                                           day.total(ALL_MEALS, PROTEIN) * 4.0f};
    const float sum = calories[0] + calories[1] + calories[2];
    for (size_t i = 0; i < calories.size() && sum > 0.0f; ++i)
        standing.energyShares[i] = calories[i] / sum;
    for (const int type : tracked) {
        if (type == ENERGY || type < 0 || type >= kNutrientCount)
            continue;
        standing.nutrients.append(
            {type, day.total(ALL_MEALS, type), float(targets[size_t(type)]), isLimit(type)});
    }
    return standing;
}

QString energyStandingText(const DayStanding &standing, bool rich)
{
    const UnitDescriptor &energy = *UnitRegistry::instance().getUnit(UNIT_ENERGY);
    QString text = tr("Eaten %1 \u2212 burned %2 = net %3")
                       .arg(energy.formatValue(standing.eaten), energy.formatValue(standing.burned),
                            energy.formatSignedWithUnit(standing.net()));
    if (standing.budget > 0) {
        const bool left = standing.remaining() >= 0;
        QString rest =
            (left ? tr("%1 left") : tr("%1 over"))
                .arg(energy.formatValueWithUnit(left ? standing.remaining() : -standing.remaining()));
        if (rich)
            rest = QStringLiteral("<b>%1</b>").arg(rest);
        text += tr(" of %1: %2").arg(energy.formatValue(standing.budget), rest);
    }
    return text;
}

QString nutrientFiguresText(const NutrientStanding &n)
{
    const UnitDescriptor &unit = *UnitRegistry::instance().getUnitForNutrient(n.type);
    return n.hasTarget() ? tr("%1 of %2").arg(unit.formatValue(n.eaten), unit.formatValueWithUnit(n.target))
                         : unit.formatValueWithUnit(n.eaten);
}

QString nutrientRemainingText(const NutrientStanding &n)
{
    if (!n.hasTarget())
        return tr("no target");
    const UnitDescriptor &unit = *UnitRegistry::instance().getUnitForNutrient(n.type);
    return n.remaining() >= 0 ? tr("%1 left").arg(unit.formatValueWithUnit(n.remaining()))
                              : tr("%1 over").arg(unit.formatValueWithUnit(-n.remaining()));
}

QString energySharesText(const DayStanding &standing)
{
    if (standing.eaten <= 0)
        return QString();
    const auto percent = [](float share) { return QLocale().toString(std::round(share * 100.0f), 'f', 0); };
    return tr("Energy from carbohydrate %1%, fat %2%, protein %3%")
        .arg(percent(standing.energyShares[0]), percent(standing.energyShares[1]),
             percent(standing.energyShares[2]));
}

QString mainValuesText(const FoodDiaryItem &item)
{
    const UnitRegistry &units = UnitRegistry::instance();
    QStringList parts = {units.getUnit(UNIT_ENERGY)->formatValueWithUnit(item.getNutrient(ENERGY))};
    for (const int type : {CARB, FAT, PROTEIN})
        parts.append(units.getUnitForNutrient(type)->getName() + QLatin1Char(' ') +
                     units.getUnitForNutrient(type)->formatValueWithUnit(item.getNutrient(type)));
    for (QString &part : parts)
        part.replace(QLatin1Char(' '), QChar::Nbsp);
    return parts.join(QStringLiteral(" \u00b7 "));
}
