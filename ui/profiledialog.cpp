#include "ui/profiledialog.h"

#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/unitdescriptor.h"

#include <QComboBox>
#include <QDateEdit>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QVBoxLayout>

namespace {

QString today()
{
    return DateConversion::fromQDate(QDate::currentDate());
}

const UnitDescriptor &lengthUnit()
{
    return *UnitRegistry::instance().getUnit(UNIT_MEASUREMENT);
}

} // namespace

ProfileDialog::ProfileDialog(int user_id, QWidget *parent)
    : QDialog(parent)
    , _userId(user_id)
{
    setWindowTitle(tr("Edit Profile"));
    setObjectName(QStringLiteral("profile"));
    setProperty("helpPage", QStringLiteral("getting-started"));
    UserProfile profile;
    for (const UserProfile &user : UserDB::getUsers()) {
        if (user.user_id == user_id)
            profile = user;
    }
    _name = new QLineEdit(profile.name, this);
    _name->setObjectName(QStringLiteral("name"));
    _name->setMaxLength(100);
    _sex = new QComboBox(this);
    _sex->addItems({tr("Male"), tr("Female")});
    _sex->setCurrentIndex(profile.sex == 1 ? 1 : 0);
    _born = new QDateEdit(DateConversion::toQDate(profile.dob), this);
    _born->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    _born->setCalendarPopup(true);
    _born->setDateRange(QDate(1900, 1, 1), QDate::currentDate());
    _height = new QDoubleSpinBox(this);
    _height->setObjectName(QStringLiteral("height"));
    _height->setDecimals(1);
    _height->setRange(lengthUnit().toDisplay(50), lengthUnit().toDisplay(272));
    _height->setSuffix(QLatin1Char(' ') + lengthUnit().getUnitText());
    _height->setValue(lengthUnit().toDisplay(std::max(UserDB::getHeight(user_id), 50.0)));
    _activity = new QComboBox(this);
    _activity->addItems({tr("Sedentary"), tr("Lightly active"), tr("Active"), tr("Very active")});
    _activity->setCurrentIndex(UserDB::getLatestMiscInt(user_id, QStringLiteral("activity"), today(), 1));

    auto *form = new QFormLayout;
    form->addRow(tr("&Name:"), _name);
    form->addRow(tr("&Sex:"), _sex);
    form->addRow(tr("&Born:"), _born);
    form->addRow(tr("&Height:"), _height);
    form->addRow(tr("&Activity:"), _activity);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

void ProfileDialog::accept()
{
    const QString name = _name->text().trimmed();
    for (const UserProfile &user : UserDB::getUsers()) {
        if (name.isEmpty() || (user.name == name && user.user_id != _userId)) {
            QMessageBox::information(this, windowTitle(),
                                     tr("Give the profile a name no other profile has."));
            return;
        }
    }
    UserProfile profile;
    for (const UserProfile &user : UserDB::getUsers()) {
        if (user.user_id == _userId)
            profile = user;
    }
    profile.name = name;
    profile.sex = _sex->currentIndex();
    profile.dob = DateConversion::fromQDate(_born->date());
    UserDB::updateUser(profile);
    const double height = lengthUnit().fromDisplayValue(_height->value());
    if (std::abs(height - UserDB::getHeight(_userId)) > 0.05)
        UserDB::setHeight(_userId, today(), height);
    const int goal = UserDB::getLatestMiscInt(_userId, QStringLiteral("goal"), today(), 0);
    if (_activity->currentIndex() !=
        UserDB::getLatestMiscInt(_userId, QStringLiteral("activity"), today(), 1)) {
        const auto misc = UserDB::getMisc(_userId, today());
        UserDB::setMisc(_userId, today(), goal, _activity->currentIndex(), misc ? misc->first : -1,
                        misc ? misc->second : QString());
    }
    QDialog::accept();
}
