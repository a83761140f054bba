#include "ui/preferencesdialog.h"

#include "app/lmsettings.h"
#include "app/profilepreferences.h"
#include "app/webserver.h"
#include "db/userdb.h"
#include "model/unitdescriptor.h"
#include "reports/daytable.h"
#include "ui/diaryview.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QSpinBox>
#include <QVBoxLayout>

PreferencesDialog::PreferencesDialog(int user_id, QWidget *parent)
    : QDialog(parent)
    , _userId(user_id)
{
    setWindowTitle(tr("Preferences"));
    setObjectName(QStringLiteral("preferences"));
    setProperty("helpPage", QStringLiteral("preferences"));
    const UserSettings settings = UserDB::getSettings(user_id);
    const ProfilePreferences preferences = ProfilePreferences::load(user_id);

    _units = new QComboBox(this);
    _units->setObjectName(QStringLiteral("units"));
    _units->addItems({tr("Metric (kg, cm)"), tr("Imperial (lb, in)")});
    _units->setCurrentIndex(settings.measurement_units == 1 ? 1 : 0);
    _energy = new QComboBox(this);
    _energy->setObjectName(QStringLiteral("energy"));
    _energy->addItem(tr("Calories"), 1);
    _energy->addItem(tr("Kilojoules"), 0);
    _energy->setCurrentIndex(settings.energy_units == 0 ? 1 : 0);
    _snacks = new QComboBox(this);
    _snacks->setObjectName(QStringLiteral("snacks"));
    _snacks->addItems({tr("Display all snacks together"), tr("Group snacks between meals"),
                       tr("Group snacks below meals")});
    _snacks->setCurrentIndex(preferences.snackMode);
    _budget = new QComboBox(this);
    _budget->addItem(tr("Within 100 calories of my target"), 1);
    _budget->addItem(tr("At or under my target"), 0);
    _budget->setCurrentIndex(preferences.budgetMode == 0 ? 1 : 0);
    _exercise = new QSpinBox(this);
    _exercise->setRange(0, 1440);
    _exercise->setSuffix(tr(" minutes a day"));
    _exercise->setValue(preferences.exerciseTarget);
    // The diary's nutrient columns, in nutrient order.
    _columns = new QListWidget(this);
    _columns->setObjectName(QStringLiteral("columns"));
    const QList<int> shown = DayTable::columnsOf(user_id);
    for (int type = 0; type < kNutrientCount; ++type) {
        auto *item =
            new QListWidgetItem(UnitRegistry::instance().getUnitForNutrient(type)->getName(), _columns);
        item->setData(Qt::UserRole, type);
        item->setCheckState(shown.contains(type) ? Qt::Checked : Qt::Unchecked);
    }
    _columns->setMaximumHeight(_columns->sizeHintForRow(0) * 5 + 2 * _columns->frameWidth());
    _webServer = new QLineEdit(WebServer::base(), this);
    _webServer->setObjectName(QStringLiteral("webServer"));
    _webServer->setPlaceholderText(tr("none: the product's own site (http://host:port/ for yours)"));
    _webUser = new QLineEdit(settings.web_username, this);
    _webPassword = new QLineEdit(settings.web_password, this);
    _webPassword->setEchoMode(QLineEdit::Password);
    _autoPublish = new QCheckBox(tr("Publish new entries when the program closes"), this);
    _autoPublish->setChecked(settings.auto_publish);
    _askBeforePublish = new QCheckBox(tr("Ask before publishing"), this);
    _askBeforePublish->setChecked(settings.ask_before_publish);
    _proxy = new QLineEdit(LmSettings::readValue(QStringLiteral("proxySettings")).toString(), this);
    _proxy->setObjectName(QStringLiteral("proxy"));
    _proxy->setPlaceholderText(tr("the system's (direct, host:port, or pac and an address)"));
    _backupFolder = new QLineEdit(LmSettings::readValue(QStringLiteral("dataBackupPath")).toString(), this);
    _backupFolder->setPlaceholderText(LmSettings::backupPath());
    _updateDays = new QSpinBox(this);
    _updateDays->setRange(0, 365);
    _updateDays->setSpecialValueText(tr("never"));
    _updateDays->setSuffix(tr(" days"));
    _updateDays->setValue(LmSettings::readValue(QStringLiteral("/staticdb/updateInterval"), 28).toInt());
    auto *form = new QFormLayout;
    form->addRow(tr("&Measurements:"), _units);
    form->addRow(tr("&Energy:"), _energy);
    form->addRow(tr("&Snacks:"), _snacks);
    form->addRow(tr("Green tick for &food:"), _budget);
    form->addRow(tr("Green tick for e&xercise:"), _exercise);
    form->addRow(tr("Diary &columns:"), _columns);
    form->addRow(tr("Online diary ser&ver:"), _webServer);
    form->addRow(tr("Online diary &user:"), _webUser);
    form->addRow(tr("Online diary &password:"), _webPassword);
    form->addRow(QString(), _autoPublish);
    form->addRow(QString(), _askBeforePublish);
    form->addRow(tr("Pro&xy:"), _proxy);
    form->addRow(tr("&Backup folder:"), _backupFolder);
    form->addRow(tr("Check for database &updates every:"), _updateDays);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

void PreferencesDialog::accept()
{
    // The one field that can be wrong is checked before anything is stored.
    const QString server = _webServer->text().trimmed();
    QString error;
    if (server.isEmpty())
        WebServer::unset();
    else if (server != WebServer::base() && !WebServer::setBase(server, &error)) {
        QMessageBox::warning(this, windowTitle(), tr("The online diary server: %1.").arg(error));
        _webServer->setFocus();
        return;
    }
    UserSettings settings = UserDB::getSettings(_userId);
    settings.measurement_units = _units->currentIndex();
    settings.energy_units = _energy->currentData().toInt();
    settings.web_username = _webUser->text().trimmed();
    settings.web_password = _webPassword->text();
    settings.auto_publish = _autoPublish->isChecked();
    settings.ask_before_publish = _askBeforePublish->isChecked();
    UserDB::setSettings(_userId, settings);
    ProfilePreferences preferences = ProfilePreferences::load(_userId);
    preferences.snackMode = _snacks->currentIndex();
    preferences.budgetMode = _budget->currentData().toInt();
    preferences.exerciseTarget = _exercise->value();
    preferences.save(_userId);
    QList<int> columns;
    for (int row = 0; row < _columns->count(); ++row) {
        if (_columns->item(row)->checkState() == Qt::Checked)
            columns.append(_columns->item(row)->data(Qt::UserRole).toInt());
    }
    DiaryView::saveColumns(_userId, columns);
    LmSettings::writeValue(QStringLiteral("/staticdb/updateInterval"), _updateDays->value());
    LmSettings::writeValue(QStringLiteral("proxySettings"), _proxy->text().trimmed());
    if (_backupFolder->text().trimmed().isEmpty())
        LmSettings::removeValue(QStringLiteral("dataBackupPath"));
    else
        LmSettings::writeValue(QStringLiteral("dataBackupPath"), _backupFolder->text().trimmed());
    QDialog::accept();
}
