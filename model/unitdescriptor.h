#pragma once

// Display units: every quantity is stored in one unit (calories, kilograms, centimetres, grams,
// milligrams) and shown in the user's. A descriptor converts, formats (C locale; unknown values
// show as "-") and makes input validators. The registry owns one descriptor per unit id; the
// user's preferences replace the energy, weight and length descriptors.

#include <QString>

#include <map>
#include <memory>

class QObject;
class QValidator;

class UnitDescriptor
{
public:
    virtual ~UnitDescriptor() = default;
    virtual double toDisplay(double stored) const { return stored; }
    virtual bool isValid(double stored) const { return stored >= 0.0; }
    virtual QValidator *createValidator(QObject *parent) const;
    // Parses user input in the display unit; the stored value.
    double fromDisplay(const QString &text) const;
    // The stored value of a number in the display unit.
    virtual double fromDisplayValue(double shown) const { return shown; }

    QString formatValue(double stored) const;
    QString formatValueWithUnit(double stored) const;
    QString formatValueLong(double stored) const;
    // For a value that is real below zero too (the net energy of a day, energy burned shown as a
    // minus): formatted with its sign, where the plain forms show "-" for unknown.
    QString formatSigned(double stored) const;
    QString formatSignedWithUnit(double stored) const;
    QString getName() const { return _name; }
    QString getUnitText() const { return _unitText; }
    int unitSystem() const { return _unitSystem; }

protected:
    UnitDescriptor(QString name, QString format, QString formatWithUnit, QString formatLong, QString unitText,
                   int unitSystem = 0);
    QString formatted(const QString &pattern, double stored) const;
    QString formattedSigned(const QString &pattern, double stored) const;

    QString _format;
    QString _formatWithUnit;
    QString _formatLong;
    QString _invalidText = QStringLiteral("-");
    QString _unitText;
    QString _name;
    int _unitSystem = 0;
};

// Unit ids of the registry.
enum UnitId {
    UNIT_ENERGY = 0,
    UNIT_CARB = 1,
    UNIT_FAT = 2,
    UNIT_FIBER = 3,
    UNIT_PROTEIN = 4,
    UNIT_SATURATED_FAT = 5,
    UNIT_CHOLESTEROL = 6,
    UNIT_SODIUM = 7,
    UNIT_SUGAR = 8,
    UNIT_CALCIUM = 9,
    UNIT_IRON = 10,
    UNIT_POTASSIUM = 11,
    UNIT_WEIGHT = 12,
    UNIT_MEASUREMENT = 13,
    UNIT_STEPS = 14,
};

std::unique_ptr<UnitDescriptor> makeEnergyUnit(int unitSystem);      // 0 calories, 1 kilojoules
std::unique_ptr<UnitDescriptor> makeWeightUnit(int unitSystem);      // 0 kg, 1 lb
std::unique_ptr<UnitDescriptor> makeMeasurementUnit(int unitSystem); // 0 cm, 1 in

class UnitRegistry
{
public:
    static UnitRegistry &instance();

    UnitDescriptor *getUnit(int unitId) const;
    void setUnit(int unitId, std::unique_ptr<UnitDescriptor> descriptor);
    UnitDescriptor *getUnitForNutrient(int nutrientType) const;

    // The profile's preferences as stored: measurement 0 metric / 1 imperial; energy 1 calories /
    // 0 kilojoules.
    void applyPreferences(int measurementUnits, int energyUnits);
    // The brand's spelling of "fiber" names the fibre unit.
    void setFiberSpelling(const QString &spelling);

private:
    UnitRegistry();
    std::map<int, std::unique_ptr<UnitDescriptor>> _units;
    std::map<int, int> _unitsEnum; // nutrient type -> unit id
};

double kgToLb(double kg);
double lbToKg(double lb);

// Height entry in feet and inches, with the program's own rounding.
struct FeetInches
{
    int feet = 0;
    int inches = 0;
};
FeetInches splitHeight(double cm);
int joinHeight(int feet, int inches); // whole centimetres
