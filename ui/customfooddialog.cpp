#include "ui/customfooddialog.h"

#include "model/unitdescriptor.h"
#include "ui/formlayouts.h"

#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QVBoxLayout>

namespace {

// The values in the order the form shows them, with the model's nutrient type of each.
constexpr QPair<int, int> kFields[] = {
    {FV_CALORIES, ENERGY},         {FV_CARB, CARB},     {FV_FAT, FAT},
    {FV_PROTEIN, PROTEIN},         {FV_FIBER, FIBER},   {FV_SATURATED_FAT, SATURATED_FAT},
    {FV_CHOLESTEROL, CHOLESTEROL}, {FV_SODIUM, SODIUM}, {FV_SUGAR, SUGAR},
    {FV_CALCIUM, CALCIUM}};

} // namespace

CustomFoodDialog::CustomFoodDialog(FoodDBDynamic *foods, int food_id, int category, const Food *prefill,
                                   QWidget *parent)
    : QDialog(parent)
    , _foods(foods)
    , _foodId(food_id)
    , _category(category)
{
    setWindowTitle(food_id < 0 ? tr("New Food") : tr("Edit Food"));
    setProperty("helpPage", QStringLiteral("logging"));
    setObjectName(QStringLiteral("customFood"));
    Food food;
    if (food_id >= 0)
        foods->food(food_id, &food);
    else if (prefill)
        food = *prefill;
    _name = new QLineEdit(food.name, this);
    _name->setObjectName(QStringLiteral("name"));
    _name->setMinimumWidth(_name->fontMetrics().averageCharWidth() * 36); // room for a long name
    _serving = new QLineEdit(food.servings.isEmpty() ? QString() : food.servings.constFirst().name, this);
    _serving->setObjectName(QStringLiteral("serving"));
    auto *form = new QFormLayout;
    form->addRow(tr("&Name:"), _name);
    form->addRow(tr("&Serving:"), _serving);
    const UnitRegistry &units = UnitRegistry::instance();
    for (const auto &[value, type] : kFields) {
        auto *box = new QDoubleSpinBox(this);
        box->setObjectName(QStringLiteral("value%1").arg(value));
        box->setRange(-1, 100000);
        box->setDecimals(1);
        box->setSpecialValueText(tr("unknown"));
        const UnitDescriptor &unit = *units.getUnitForNutrient(type);
        box->setSuffix(QLatin1Char(' ') + unit.getUnitText());
        const float stored = food.values[size_t(value)];
        box->setValue(stored > -0.01f ? unit.toDisplay(stored) : -1);
        form->addRow(unit.getName() + QLatin1Char(':'), box);
        _values[size_t(value)] = box;
    }
    QList<QWidget *> figures;
    for (const auto &[value, type] : kFields)
        figures.append(_values[size_t(value)]);
    compactFigures(form, figures);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

void CustomFoodDialog::accept()
{
    const QString name = _name->text().trimmed();
    const QString serving = _serving->text().trimmed();
    if (name.isEmpty() || serving.isEmpty() || _values[FV_CALORIES]->value() < 0) {
        QMessageBox::information(this, windowTitle(), tr("A food needs a name, a serving and its energy."));
        return;
    }
    std::array<float, FV_COUNT> values;
    const UnitRegistry &units = UnitRegistry::instance();
    for (const auto &[value, type] : kFields) {
        const double shown = _values[size_t(value)]->value();
        values[size_t(value)] =
            shown < 0 ? kAbsentValue : float(units.getUnitForNutrient(type)->fromDisplayValue(shown));
    }
    if (_foodId < 0)
        _foodId = _foods->addFood(name, serving, values, _category);
    else
        _foods->updateFood(_foodId, name, serving, values);
    QDialog::accept();
}
