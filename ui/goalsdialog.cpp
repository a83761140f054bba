#include "ui/goalsdialog.h"

#include "model/dateconversion.h"
#include "model/dbtypes.h"
#include "model/unitdescriptor.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QDateEdit>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cmath>

namespace {

const UnitDescriptor &unit(int id)
{
    return *UnitRegistry::instance().getUnit(id);
}

} // namespace

GoalsDialog::GoalsDialog(int userId, const QDate &day, QWidget *parent)
    : QDialog(parent)
    , _userId(userId)
{
    setWindowTitle(tr("Goals and Targets"));
    setObjectName(QStringLiteral("goals"));
    setProperty("helpPage", QStringLiteral("check-ins-and-goals"));
    const UnitDescriptor &weight = unit(UNIT_WEIGHT);
    const bool pounds = weight.getUnitText() != QLatin1String("kg");

    _from = new QDateEdit(day, this);
    _from->setObjectName(QStringLiteral("from"));
    _from->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    _from->setCalendarPopup(true);
    _from->setToolTip(tr("The targets hold from this day on; the days before keep theirs."));

    _weight = new QDoubleSpinBox(this);
    _weight->setObjectName(QStringLiteral("goalWeight"));
    _weight->setDecimals(1);
    _weight->setRange(0, weight.toDisplay(500));
    _weight->setSuffix(QLatin1Char(' ') + weight.getUnitText());
    _weight->setSpecialValueText(tr("None"));

    _rate = new QComboBox(this);
    _rate->setObjectName(QStringLiteral("rate"));
    // Kilograms, or half pounds for a profile that weighs in pounds.
    const QList<double> steps = pounds ? QList<double>{2, 1.5, 1, 0.5} : QList<double>{1, 0.75, 0.5, 0.25};
    for (double step : steps)
        _rate->addItem(tr("Lose %1 a week").arg(weight.formatValueWithUnit(weight.fromDisplayValue(step))),
                       -weight.fromDisplayValue(step));
    _rate->addItem(tr("Keep my weight"), 0.0);
    for (auto it = steps.crbegin(); it != steps.crend(); ++it)
        _rate->addItem(tr("Gain %1 a week").arg(weight.formatValueWithUnit(weight.fromDisplayValue(*it))),
                       weight.fromDisplayValue(*it));

    const UnitDescriptor &energy = unit(UNIT_ENERGY);
    _fromPlan = new QRadioButton(tr("From the diet &plan"), this);
    _fromPlan->setObjectName(QStringLiteral("fromPlan"));
    _planned = new QLabel(this);
    _planned->setObjectName(QStringLiteral("planned"));
    _byHand = new QRadioButton(tr("Set &by hand"), this);
    _byHand->setObjectName(QStringLiteral("byHand"));
    _calories = new QSpinBox(this);
    _calories->setObjectName(QStringLiteral("calories"));
    _calories->setRange(int(energy.toDisplay(500)), int(energy.toDisplay(10000)));
    _calories->setSuffix(QLatin1Char(' ') + energy.getUnitText());
    auto *group = new QButtonGroup(this);
    group->addButton(_fromPlan);
    group->addButton(_byHand);
    auto *planRow = new QHBoxLayout;
    planRow->addWidget(_fromPlan);
    planRow->addWidget(_planned, 1);
    auto *handRow = new QHBoxLayout;
    handRow->addWidget(_byHand);
    handRow->addWidget(_calories, 1);

    auto *form = new QFormLayout;
    form->addRow(tr("In force fro&m:"), _from);
    form->addRow(tr("Goal &weight:"), _weight);
    form->addRow(tr("Weekly &rate:"), _rate);
    form->addRow(tr("Energy:"), planRow);
    form->addRow(QString(), handRow);
    const std::pair<int, QString> shares[] = {
        {CARB, tr("&Carbohydrate:")}, {FAT, tr("&Fat:")}, {PROTEIN, tr("Pr&otein:")}};
    for (const auto &[type, label] : shares) {
        Share share{type, new QDoubleSpinBox(this), new QComboBox(this)};
        const QString name = type == CARB  ? QStringLiteral("carb")
                             : type == FAT ? QStringLiteral("fat")
                                           : QStringLiteral("protein");
        share.value->setObjectName(name);
        share.value->setDecimals(0);
        share.value->setRange(0, 2000);
        share.unit->setObjectName(name + QStringLiteral("Unit"));
        share.unit->addItems({tr("g"), tr("% of energy")});
        auto *row = new QHBoxLayout;
        row->addWidget(share.value, 1);
        row->addWidget(share.unit);
        auto *caption = new QLabel(label, this);
        caption->setBuddy(share.value);
        form->addRow(caption, row);
        _shares.append(share);
    }
    _water = new QSpinBox(this);
    _water->setObjectName(QStringLiteral("water"));
    _water->setRange(1, 40);
    _water->setSuffix(tr(" glasses a day"));
    form->addRow(tr("Wat&er:"), _water);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &GoalsDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);

    load();
    connect(_from, &QDateEdit::dateChanged, this, &GoalsDialog::load);
    connect(_rate, &QComboBox::currentIndexChanged, this, &GoalsDialog::updatePlan);
    connect(_fromPlan, &QRadioButton::toggled, this, &GoalsDialog::updatePlan);
    connect(_calories, &QSpinBox::valueChanged, this, [this] { _byHand->setChecked(true); });
    for (Share &share : _shares) {
        connect(share.value, &QDoubleSpinBox::valueChanged, this, [&share] { share.edited = true; });
        // The same amount in the other unit.
        connect(share.unit, &QComboBox::currentIndexChanged, this, [this, &share](int index) {
            const double energy = unit(UNIT_ENERGY).fromDisplayValue(_calories->value());
            const double perGram = Goals::caloriesPerGram(share.type);
            const bool wasEdited = share.edited;
            share.value->setRange(0, index == 1 ? 100 : 2000);
            share.value->setValue(index == 1 ? std::round(share.value->value() * perGram * 100.0 / energy)
                                             : std::round(energy * share.value->value() / 100.0 / perGram));
            share.edited = wasEdited;
        });
    }
}

double GoalsDialog::rate() const
{
    return _rate->currentData().toDouble();
}

void GoalsDialog::load()
{
    const QString day = DateConversion::fromQDate(_from->date());
    _before = Goals::inForce(_userId, day);
    const UnitDescriptor &weight = unit(UNIT_WEIGHT);
    _weight->setValue(_before.weight ? weight.toDisplay(*_before.weight) : 0.0);
    int nearest = 0;
    for (int i = 0; i < _rate->count(); ++i) {
        if (std::abs(_rate->itemData(i).toDouble() - _before.weeklyRate) <
            std::abs(_rate->itemData(nearest).toDouble() - _before.weeklyRate))
            nearest = i;
    }
    _rate->setCurrentIndex(nearest);
    const QSignalBlocker blocker(_calories);
    _calories->setValue(
        int(std::lround(unit(UNIT_ENERGY).toDisplay(std::max(_before.targets.values[ENERGY], 0.0)))));
    (_before.energyByHand ? _byHand : _fromPlan)->setChecked(true);
    for (Share &share : _shares) {
        const QSignalBlocker unitBlocker(share.unit);
        share.unit->setCurrentIndex(0);
        share.value->setRange(0, 2000);
        share.value->setValue(std::max(_before.targets.values[size_t(share.type)], 0.0));
        share.edited = false;
    }
    _water->setValue(_before.water);
    updatePlan();
}

void GoalsDialog::updatePlan()
{
    const auto planned = Goals::plannedEnergy(_userId, DateConversion::fromQDate(_from->date()), rate());
    _fromPlan->setEnabled(planned.has_value());
    if (!planned) {
        _planned->setText(tr("needs a weight check-in, a height and a date of birth"));
        _byHand->setChecked(true);
        return;
    }
    _planned->setText(unit(UNIT_ENERGY).formatValueWithUnit(*planned));
    if (_fromPlan->isChecked()) {
        const QSignalBlocker blocker(_calories);
        _calories->setValue(int(std::lround(unit(UNIT_ENERGY).toDisplay(*planned))));
    }
}

void GoalsDialog::accept()
{
    GoalChange change;
    const UnitDescriptor &weight = unit(UNIT_WEIGHT);
    const double goalWeight = weight.fromDisplayValue(_weight->value());
    if (std::abs(goalWeight - _before.weight.value_or(0.0)) > 0.01)
        change.weight = goalWeight;
    if (std::abs(rate() - _before.weeklyRate) > 1e-6)
        change.weeklyRate = rate();
    const double calories = unit(UNIT_ENERGY).fromDisplayValue(_calories->value());
    if (_fromPlan->isChecked())
        change.caloriesFromPlan =
            _before.energyByHand || change.weeklyRate || _before.targets.values[ENERGY] < 0;
    else if (!_before.energyByHand || std::abs(calories - _before.targets.values[ENERGY]) > 0.5)
        change.calories = calories;
    for (const Share &share : _shares) {
        if (!share.edited)
            continue;
        const GoalChange::Amount amount{share.value->value(), share.unit->currentIndex() == 1};
        (share.type == CARB ? change.carb : share.type == FAT ? change.fat : change.protein) = amount;
    }
    if (_water->value() != _before.water)
        change.water = _water->value();

    QString message;
    if (Goals::apply(_userId, DateConversion::fromQDate(_from->date()), change, &message) !=
        Goals::Applied::Stored) {
        QMessageBox::warning(this, windowTitle(), message);
        return;
    }
    QDialog::accept();
}
