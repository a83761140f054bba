#include "model/unitdescriptor.h"

#include "common/lmassert.h"
#include "model/dbtypes.h"
#include "model/modellog.h"

#include <QDoubleValidator>
#include <QIntValidator>
#include <QLocale>

#include <cmath>

namespace {

constexpr double kKilojoulesPerCalorie = 4.18;
constexpr double kCaloriesPerKilojoule = 0.23923444976076558;
constexpr double kPoundsPerKilogram = 2.2046224760379585;
constexpr double kKilogramsPerPound = 0.4535924; // deliberately not the exact inverse
constexpr double kInchesPerCentimetre = 0.39370078740157477;
constexpr double kCentimetresPerInch = 2.54;
constexpr double kFeetPerCentimetre = 0.03280086594286089; // 1/30.487, the program's own

QValidator *doubleValidator(QObject *parent, double bottom, double top, int decimals)
{
    auto *validator = new QDoubleValidator(bottom, top, decimals, parent);
    validator->setLocale(QLocale::c());
    validator->setNotation(QDoubleValidator::StandardNotation);
    return validator;
}

// Grams, milligrams and percent.
class NutrientUnit : public UnitDescriptor
{
public:
    NutrientUnit(const char *name, const char *withUnit, const char *longFormat, const char *unitText)
        : UnitDescriptor(QLatin1String(name), QStringLiteral("%.1f"), QLatin1String(withUnit),
                         QLatin1String(longFormat), QLatin1String(unitText))
    {
    }
    QValidator *createValidator(QObject *parent) const override
    {
        return doubleValidator(parent, 0.0, 2000000.0, 1);
    }
    void setName(const QString &name, const QString &longFormat)
    {
        _name = name;
        _formatLong = longFormat;
    }
};

// Energy, weight and lengths: unit system 0 shows the stored value, system 1 scales it.
struct TwoSystemSpec
{
    const char *name[2];
    const char *format;
    const char *withUnit[2];
    const char *unitText[2];
    double toDisplayFactor;
    double fromDisplayFactor;
    const char *fromDisplayWarning;
    enum { Decimal, Integer } validator;
    double bottom;
    int decimals;
};

const TwoSystemSpec kEnergySpec = {{"Calories", "Kilojoules"}, "%.0f", {"%.0f cals", "%.0f kj"}, {"cals", "kj"},
                                   kKilojoulesPerCalorie, kCaloriesPerKilojoule, "invalid type",
                                   TwoSystemSpec::Decimal, 0.0, 0};
const TwoSystemSpec kWeightSpec = {{"Weight", "Weight"}, "%.1f", {"%.1f kg", "%.1f lb"}, {"kg", "lb"},
                                   kPoundsPerKilogram, kKilogramsPerPound, "Invalid unit",
                                   TwoSystemSpec::Decimal, 1.0, 1};
const TwoSystemSpec kMeasurementSpec = {{"Height", "Height"}, "%.2f", {"%.2f cm", "%.2f in"}, {"cm", "in"},
                                        kInchesPerCentimetre, kCentimetresPerInch, "Invalid unit",
                                        TwoSystemSpec::Integer, 1.0, 0};

class TwoSystemUnit : public UnitDescriptor
{
public:
    TwoSystemUnit(const TwoSystemSpec &spec, int unitSystem)
        : UnitDescriptor(QLatin1String(spec.name[unitSystem == 1]), QLatin1String(spec.format),
                         QLatin1String(spec.withUnit[unitSystem == 1]), QLatin1String(spec.withUnit[unitSystem == 1]),
                         QLatin1String(spec.unitText[unitSystem == 1]), unitSystem)
        , _spec(spec)
    {
    }
    double toDisplay(double stored) const override
    {
        if (_unitSystem == 0)
            return stored;
        if (_unitSystem == 1)
            return stored * _spec.toDisplayFactor;
        qCWarning(lcModel, "Invalid type");
        return 0.0;
    }
    double fromDisplayValue(double value) const override
    {
        if (_unitSystem == 0)
            return value;
        if (_unitSystem == 1)
            return value * _spec.fromDisplayFactor;
        qCWarning(lcModel, "%s", _spec.fromDisplayWarning);
        return 0.0;
    }
    QValidator *createValidator(QObject *parent) const override
    {
        if (_spec.validator == TwoSystemSpec::Integer)
            return new QIntValidator(int(_spec.bottom), 1000000, parent);
        return doubleValidator(parent, _spec.bottom, 1e9, _spec.decimals);
    }

private:
    const TwoSystemSpec &_spec;
};

class UnitSteps : public UnitDescriptor
{
public:
    UnitSteps()
        : UnitDescriptor(QStringLiteral("Steps"), QStringLiteral("%0.0f"), QStringLiteral("%0.0f"),
                         QStringLiteral("%0.0f steps"), QStringLiteral("steps"))
    {
    }
    QValidator *createValidator(QObject *parent) const override { return new QIntValidator(0, 2000000, parent); }
};

} // namespace

UnitDescriptor::UnitDescriptor(QString name, QString format, QString formatWithUnit, QString formatLong,
                               QString unitText, int unitSystem)
    : _format(std::move(format))
    , _formatWithUnit(std::move(formatWithUnit))
    , _formatLong(std::move(formatLong))
    , _unitText(std::move(unitText))
    , _name(std::move(name))
    , _unitSystem(unitSystem)
{
}

QValidator *UnitDescriptor::createValidator(QObject *) const
{
    qCWarning(lcModel, "WARNING: %s, This unit descriptor has no validator", typeid(*this).name());
    return nullptr;
}

double UnitDescriptor::fromDisplay(const QString &text) const
{
    return fromDisplayValue(QLocale::c().toFloat(text.trimmed()));
}

// printf-style patterns, always in the C locale (asprintf does not follow the locale).
QString UnitDescriptor::formatted(const QString &pattern, double stored) const
{
    if (!isValid(stored))
        return _invalidText;
    return QString::asprintf(pattern.toLatin1().constData(), toDisplay(stored));
}

QString UnitDescriptor::formattedSigned(const QString &pattern, double stored) const
{
    const QByteArray format = pattern.toLatin1();
    double shown = toDisplay(stored);
    // A value that rounds to zero shows as 0, never as "-0".
    if (shown < 0 && QString::asprintf(format.constData(), -shown) == QString::asprintf(format.constData(), 0.0))
        shown = 0;
    return QString::asprintf(format.constData(), shown);
}

QString UnitDescriptor::formatSigned(double stored) const
{
    return formattedSigned(_format, stored);
}

QString UnitDescriptor::formatSignedWithUnit(double stored) const
{
    return formattedSigned(_formatWithUnit, stored);
}

QString UnitDescriptor::formatValue(double stored) const
{
    return formatted(_format, stored);
}

QString UnitDescriptor::formatValueWithUnit(double stored) const
{
    return formatted(_formatWithUnit, stored);
}

QString UnitDescriptor::formatValueLong(double stored) const
{
    return _formatLong.isEmpty() ? QString() : formatted(_formatLong, stored);
}

std::unique_ptr<UnitDescriptor> makeEnergyUnit(int unitSystem)
{
    return std::make_unique<TwoSystemUnit>(kEnergySpec, unitSystem);
}

std::unique_ptr<UnitDescriptor> makeWeightUnit(int unitSystem)
{
    return std::make_unique<TwoSystemUnit>(kWeightSpec, unitSystem);
}

std::unique_ptr<UnitDescriptor> makeMeasurementUnit(int unitSystem)
{
    return std::make_unique<TwoSystemUnit>(kMeasurementSpec, unitSystem);
}

UnitRegistry &UnitRegistry::instance()
{
    static UnitRegistry registry;
    return registry;
}

UnitRegistry::UnitRegistry()
{
    _units[UNIT_ENERGY] = makeEnergyUnit(0);
    _units[UNIT_CARB] = std::make_unique<NutrientUnit>("Carbs", "%.1f g", "%.1fg of carbohydrate", "g");
    _units[UNIT_FAT] = std::make_unique<NutrientUnit>("Fat", "%.1f g", "", "g");
    _units[UNIT_FIBER] = std::make_unique<NutrientUnit>("", "%.1f g", "%.1fg of ", "g");
    _units[UNIT_PROTEIN] = std::make_unique<NutrientUnit>("Protein", "%.1f g", "%.1fg of protein", "g");
    _units[UNIT_MEASUREMENT] = makeMeasurementUnit(1);
    _units[UNIT_WEIGHT] = makeWeightUnit(0);
    _units[UNIT_STEPS] = std::make_unique<UnitSteps>();
    _units[UNIT_SATURATED_FAT] =
        std::make_unique<NutrientUnit>("Sat Fat", "%.1f g", "%.1fg of saturated fat", "g");
    _units[UNIT_CHOLESTEROL] = std::make_unique<NutrientUnit>("Chol", "%.1f mg", "%.1fmg of cholesterol", "mg");
    _units[UNIT_SODIUM] = std::make_unique<NutrientUnit>("Sodium", "%.1f mg", "%.1fmg of sodium", "mg");
    _units[UNIT_SUGAR] = std::make_unique<NutrientUnit>("Sugar", "%.1f g", "%.1fg of sugar", "g");
    _units[UNIT_CALCIUM] = std::make_unique<NutrientUnit>("Calcium", "%.1f mg", "%.1fmg of calcium", "mg");
    _units[UNIT_IRON] = std::make_unique<NutrientUnit>("Iron", "%.1f %%", "%.1f%% of iron", "%%");
    // Potassium carries the sodium texts; kept as the product has always shown them.
    _units[UNIT_POTASSIUM] = std::make_unique<NutrientUnit>("Sodium", "%.1f mg", "%.1fmg of sodium", "mg");

    _unitsEnum = {{ENERGY, UNIT_ENERGY},           {CARB, UNIT_CARB},
                  {FAT, UNIT_FAT},                 {PROTEIN, UNIT_PROTEIN},
                  {FIBER, UNIT_FIBER},             {SATURATED_FAT, UNIT_SATURATED_FAT},
                  {CHOLESTEROL, UNIT_CHOLESTEROL}, {SODIUM, UNIT_SODIUM},
                  {SUGAR, UNIT_SUGAR},             {CALCIUM, UNIT_CALCIUM}};
}

UnitDescriptor *UnitRegistry::getUnit(int unitId) const
{
    const auto p = _units.find(unitId);
    LM_ASSERT(p != _units.end());
    return p->second.get();
}

void UnitRegistry::setUnit(int unitId, std::unique_ptr<UnitDescriptor> descriptor)
{
    const auto it = _units.find(unitId);
    LM_ASSERT(it != _units.end());
    it->second = std::move(descriptor);
}

UnitDescriptor *UnitRegistry::getUnitForNutrient(int nutrientType) const
{
    const auto it = _unitsEnum.find(nutrientType);
    LM_ASSERT(it != _unitsEnum.end());
    return getUnit(it->second);
}

void UnitRegistry::applyPreferences(int measurementUnits, int energyUnits)
{
    if (measurementUnits == 0 || measurementUnits == 1) {
        setUnit(UNIT_WEIGHT, makeWeightUnit(measurementUnits));
        setUnit(UNIT_MEASUREMENT, makeMeasurementUnit(measurementUnits));
    } else {
        qCWarning(lcModel, "Invalid measurement type");
    }
    // Stored 1 means calories, 0 kilojoules: the unit system is its negation.
    if (energyUnits == 0 || energyUnits == 1)
        setUnit(UNIT_ENERGY, makeEnergyUnit(energyUnits == 0 ? 1 : 0));
    else
        qCWarning(lcModel, "Invalid energy type");
}

void UnitRegistry::setFiberSpelling(const QString &spelling)
{
    // A label begins with a capital, as the other nutrients' names do; the long form runs on.
    const QString label = spelling.left(1).toUpper() + spelling.mid(1);
    static_cast<NutrientUnit *>(getUnit(UNIT_FIBER))->setName(label, QStringLiteral("%.1fg of ") + spelling);
}

double kgToLb(double kg)
{
    return kg * kPoundsPerKilogram;
}

double lbToKg(double lb)
{
    return lb * kKilogramsPerPound;
}

FeetInches splitHeight(double cm)
{
    FeetInches result;
    result.feet = int(cm * kFeetPerCentimetre);
    const double inchesExact = cm * kInchesPerCentimetre - result.feet * 12.0;
    result.inches = int(inchesExact);
    const double fraction = inchesExact - result.inches;
    if (fraction > 0.5) {
        // The carry happens at 13 only, so 12 inches can stand.
        if (result.inches - 1.0 == 12.0) {
            result.inches = 0;
            ++result.feet;
        } else {
            ++result.inches;
        }
    }
    return result;
}

int joinHeight(int feet, int inches)
{
    return int((feet * 12.0 + inches) * kCentimetresPerInch);
}
