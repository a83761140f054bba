#include "ui/newprofilewizard.h"

#include "brand/brandengine.h"
#include "db/newprofile.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/energy.h"
#include "model/lmdietplan.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QDateEdit>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <QWizardPage>

#include <cmath>

namespace {

constexpr double kCmPerInch = 2.54;
constexpr double kKgPerPound = 0.45359237;

// The first page is complete once there is a name.
class WhoPage : public QWizardPage
{
public:
    explicit WhoPage(QWidget *parent)
        : QWizardPage(parent)
    {
    }
    void watch(QLineEdit *name)
    {
        _name = name;
        connect(name, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);
    }
    bool isComplete() const override { return _name && !_name->text().trimmed().isEmpty(); }

private:
    QLineEdit *_name = nullptr;
};

QString today()
{
    return DateConversion::fromQDate(QDate::currentDate());
}

} // namespace

NewProfileWizard::NewProfileWizard(QWidget *parent)
    : QWizard(parent)
{
    setWindowTitle(tr("New Profile"));
    setProperty("helpPage", QStringLiteral("getting-started"));
    setObjectName(QStringLiteral("newProfileWizard"));
    setOption(QWizard::NoBackButtonOnStartPage);

    // Who
    auto *who = new WhoPage(this);
    who->setTitle(tr("About you"));
    who->setSubTitle(tr("Your name for this profile, and what the energy requirement depends on."));
    _name = new QLineEdit(who);
    _name->setObjectName(QStringLiteral("name"));
    _name->setMaxLength(100);
    _female = new QRadioButton(tr("&Female"), who);
    _female->setObjectName(QStringLiteral("female"));
    _male = new QRadioButton(tr("&Male"), who);
    _male->setObjectName(QStringLiteral("male"));
    _female->setChecked(true);
    auto *sexRow = new QHBoxLayout;
    sexRow->addWidget(_female);
    sexRow->addWidget(_male);
    sexRow->addStretch();
    _born = new QDateEdit(QDate::currentDate().addYears(-35), who);
    _born->setObjectName(QStringLiteral("born"));
    _born->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    _born->setCalendarPopup(true);
    _born->setDateRange(QDate(1900, 1, 1), QDate::currentDate().addYears(-1));
    auto *whoForm = new QFormLayout(who);
    whoForm->addRow(tr("&Name:"), _name);
    whoForm->addRow(tr("Sex:"), sexRow);
    whoForm->addRow(tr("&Born:"), _born);
    who->watch(_name);
    addPage(who);

    // Body and aims
    auto *body = new QWizardPage(this);
    body->setTitle(tr("Body and aims"));
    body->setSubTitle(tr("Your height and weight, how active you are, and what you aim for."));
    _units = new QComboBox(body);
    _units->setObjectName(QStringLiteral("units"));
    _units->addItems({tr("Metric (kg, cm)"), tr("Imperial (lb, ft and in)")});
    const BrandEngine &brand = BrandEngine::instance();
    if (brand.idExists(QStringLiteral("default_measurement_units")))
        _units->setCurrentIndex(brand.getInt(QStringLiteral("default_measurement_units")) == 1 ? 1 : 0);
    _heightCm = new QDoubleSpinBox(body);
    _heightCm->setObjectName(QStringLiteral("heightCm"));
    _heightCm->setRange(50, 272);
    _heightCm->setDecimals(1);
    _heightCm->setValue(170);
    _heightCm->setSuffix(QStringLiteral(" cm"));
    _heightFeet = new QSpinBox(body);
    _heightFeet->setObjectName(QStringLiteral("heightFeet"));
    _heightFeet->setRange(1, 8);
    _heightFeet->setSuffix(QStringLiteral(" ft"));
    _heightInches = new QSpinBox(body);
    _heightInches->setObjectName(QStringLiteral("heightInches"));
    _heightInches->setRange(0, 11);
    _heightInches->setSuffix(QStringLiteral(" in"));
    auto *heightRow = new QHBoxLayout;
    heightRow->addWidget(_heightCm);
    heightRow->addWidget(_heightFeet);
    heightRow->addWidget(_heightInches);
    heightRow->addStretch();
    _weight = new QDoubleSpinBox(body);
    _weight->setObjectName(QStringLiteral("weight"));
    _weight->setDecimals(1);
    _activity = new QComboBox(body);
    _activity->setObjectName(QStringLiteral("activity"));
    _activity->addItems(
        {tr("Sedentary: little or no exercise"), tr("Lightly active: light exercise 1-3 days a week"),
         tr("Active: moderate exercise 3-5 days a week"), tr("Very active: hard exercise 6-7 days a week")});
    _activity->setCurrentIndex(1);
    _goal = new QComboBox(body);
    _goal->setObjectName(QStringLiteral("goal"));
    _goal->addItem(tr("Keep my weight"), MAINTAIN_WEIGHT);
    _goal->addItem(tr("Lose weight (about 0.5 kg a week)"), LOSE_WEIGHT);
    _goal->addItem(tr("Gain weight"), GAIN_WEIGHT);
    // The brand's own plan is a choice only where the brand offers it.
    _plan = new QComboBox(body);
    _plan->setObjectName(QStringLiteral("dietPlan"));
    const QString brandPlan = QStringLiteral("dietplan.brindlemoss.enabled");
    _plan->addItems(offeredDietPlans(brand.idExists(brandPlan) && brand.getBool(brandPlan)));
    auto *bodyForm = new QFormLayout(body);
    bodyForm->addRow(tr("&Units:"), _units);
    _heightLabel = new QLabel(tr("&Height:"), body); // its buddy follows the units
    bodyForm->addRow(_heightLabel, heightRow);
    auto *weightRow = new QHBoxLayout;
    weightRow->addWidget(_weight);
    weightRow->addStretch();
    auto *weightLabel = new QLabel(tr("&Weight:"), body);
    weightLabel->setBuddy(_weight);
    bodyForm->addRow(weightLabel, weightRow);
    bodyForm->addRow(tr("&Activity:"), _activity);
    bodyForm->addRow(tr("&Goal:"), _goal);
    if (_plan->count() > 1)
        bodyForm->addRow(tr("Diet &plan:"), _plan);
    else
        _plan->hide();
    _weight->setRange(20, 500);
    _weight->setSuffix(QStringLiteral(" kg"));
    _weight->setValue(70);
    connect(_units, &QComboBox::currentIndexChanged, this, &NewProfileWizard::unitsChanged);
    unitsChanged();
    addPage(body);

    // What follows
    auto *result = new QWizardPage(this);
    result->setTitle(tr("Your daily targets"));
    result->setSubTitle(tr("From your details and goal. You can change them later in the diary."));
    _targets = new QLabel(result);
    _targets->setObjectName(QStringLiteral("targets"));
    _targets->setTextFormat(Qt::RichText);
    auto *resultLayout = new QVBoxLayout(result);
    resultLayout->addWidget(_targets);
    resultLayout->addStretch();
    addPage(result);
    connect(this, &QWizard::currentIdChanged, this, [this](int id) {
        if (id == 2)
            showTargets();
    });
}

bool NewProfileWizard::imperial() const
{
    return _units->currentIndex() == 1;
}

double NewProfileWizard::heightCm() const
{
    return imperial() ? (_heightFeet->value() * 12 + _heightInches->value()) * kCmPerInch
                      : _heightCm->value();
}

double NewProfileWizard::weightKg() const
{
    return imperial() ? _weight->value() * kKgPerPound : _weight->value();
}

void NewProfileWizard::unitsChanged()
{
    // The values the user gave stay the same amounts in the other units.
    const bool toImperial = imperial();
    const double cm = _imperialShown ? (_heightFeet->value() * 12 + _heightInches->value()) * kCmPerInch
                                     : _heightCm->value();
    const double kg = _imperialShown ? _weight->value() * kKgPerPound : _weight->value();
    _heightCm->setVisible(!toImperial);
    _heightLabel->setBuddy(toImperial ? static_cast<QWidget *>(_heightFeet) : _heightCm);
    _heightFeet->setVisible(toImperial);
    _heightInches->setVisible(toImperial);
    if (toImperial) {
        const int inches = int(std::lround(cm / kCmPerInch));
        _heightFeet->setValue(inches / 12);
        _heightInches->setValue(inches % 12);
        _weight->setRange(44, 1100);
        _weight->setSuffix(QStringLiteral(" lb"));
        _weight->setValue(kg / kKgPerPound);
    } else {
        _heightCm->setValue(cm);
        _weight->setRange(20, 500);
        _weight->setSuffix(QStringLiteral(" kg"));
        _weight->setValue(kg);
    }
    _imperialShown = toImperial;
}

void NewProfileWizard::showTargets()
{
    const QString dob = DateConversion::fromQDate(_born->date());
    const int sex = _female->isChecked() ? 1 : 0;
    const float requirement = energyRequirement(
        {float(weightKg()), today(), _activity->currentIndex(), sex, float(heightCm()), dob});
    const auto targets = dietPlanTargets(_plan->currentText(), requirement, _goal->currentData().toInt(), sex,
                                         ageInYears(dob, today()));
    _targets->setText(
        tr("<p>You need about <b>%1 calories</b> a day.</p>"
           "<p>Your daily targets:<br>Energy: <b>%2 calories</b><br>Carbohydrate: %3 g<br>Fat: %4 g"
           "<br>Protein: %5 g<br>Fibre: %6 g</p>")
            .arg(qRound(requirement))
            .arg(qRound(targets[ENERGY]))
            .arg(qRound(targets[CARB]))
            .arg(qRound(targets[FAT]))
            .arg(qRound(targets[PROTEIN]))
            .arg(qRound(targets[FIBER])));
}

void NewProfileWizard::accept()
{
    NewProfile profile;
    profile.name = _name->text().trimmed();
    for (const UserProfile &user : UserDB::getUsers()) {
        if (user.name == profile.name) {
            QMessageBox::warning(this, windowTitle(),
                                 tr("There is a profile named %1 already.").arg(profile.name));
            return;
        }
    }
    profile.sex = _female->isChecked() ? 1 : 0;
    profile.dob = DateConversion::fromQDate(_born->date());
    profile.height = heightCm();
    profile.weight = weightKg();
    profile.activity = _activity->currentIndex();
    profile.goal = _goal->currentData().toInt();
    profile.dietPlan = _plan->currentText();
    const BrandEngine &brand = BrandEngine::instance();
    profile.settings.measurement_units = imperial() ? 1 : 0;
    profile.settings.energy_units = brand.idExists(QStringLiteral("default_energy_units"))
                                        ? brand.getInt(QStringLiteral("default_energy_units"))
                                        : 1;
    _userId = createProfile(profile, today());
    QWizard::accept();
}
