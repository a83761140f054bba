#include "ui/checkinview.h"

#include "brand/brandengine.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/unitdescriptor.h"
#include "ui/formlayouts.h"

#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cmath>

namespace {

// A measurement field whose lowest value reads "not measured".
QDoubleSpinBox *measurement(QWidget *parent, const char *name)
{
    auto *box = new QDoubleSpinBox(parent);
    box->setObjectName(QLatin1String(name));
    box->setDecimals(1);
    box->setSpecialValueText(QObject::tr("not measured"));
    return box;
}

bool enabled(const char *id)
{
    const BrandEngine &brand = BrandEngine::instance();
    return !brand.idExists(QLatin1String(id)) || brand.getBool(QLatin1String(id));
}

const UnitDescriptor &weightUnit()
{
    return *UnitRegistry::instance().getUnit(UNIT_WEIGHT);
}

const UnitDescriptor &lengthUnit()
{
    return *UnitRegistry::instance().getUnit(UNIT_MEASUREMENT);
}

void showValue(QDoubleSpinBox *box, const UnitDescriptor &unit, double stored)
{
    box->setSuffix(QLatin1Char(' ') + unit.getUnitText());
    box->setRange(0, unit.toDisplay(1000));
    box->setValue(stored > 0 ? unit.toDisplay(stored) : 0);
}

double stored(const QDoubleSpinBox *box, const UnitDescriptor &unit)
{
    return box->value() > 0 ? unit.fromDisplayValue(box->value()) : -1;
}

} // namespace

CheckInView::CheckInView(QWidget *parent)
    : QWidget(parent)
{
    _title = new QLabel(this);
    QFont titleFont = _title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    _title->setFont(titleFont);
    _weight = measurement(this, "weight");
    _chest = measurement(this, "chest");
    _waist = measurement(this, "waist");
    _hip = measurement(this, "hip");
    _thigh = measurement(this, "thigh");
    _steps = new QSpinBox(this);
    _steps->setObjectName(QStringLiteral("steps"));
    _steps->setRange(-1, 200000);
    _steps->setSpecialValueText(tr("not counted"));
    _note = new QLineEdit(this);
    _note->setObjectName(QStringLiteral("note"));
    auto *form = new QFormLayout;
    form->addRow(tr("&Weight:"), _weight);
    const QPair<const char *, QPair<QString, QWidget *>> optional[] = {
        {"chest_measurement_enabled", {tr("&Chest:"), _chest}},
        {"waist_measurement_enabled", {tr("W&aist:"), _waist}},
        {"hip_measurement_enabled", {tr("&Hips:"), _hip}},
        {"thigh_measurement_enabled", {tr("&Thigh:"), _thigh}},
        {"steps_measurement_enabled", {tr("&Steps:"), _steps}}};
    for (const auto &[flag, row] : optional) {
        if (enabled(flag))
            form->addRow(row.first, row.second);
        else
            row.second->hide();
    }
    form->addRow(tr("&Note:"), _note);
    compactFigures(form, {_weight, _chest, _waist, _hip, _thigh, _steps});
    auto *saveButton = new QPushButton(tr("&Save Check-in"), this);
    saveButton->setObjectName(QStringLiteral("save"));
    connect(saveButton, &QPushButton::clicked, this, [this] { save(); });
    auto *today = new QPushButton(
        QIcon(BrandEngine::instance().getPixmap(QStringLiteral("graphics.icon.checkin.today"))), tr("T&oday"),
        this);
    connect(today, &QPushButton::clicked, this, [this] { setDate(QDate::currentDate()); });
    auto *remove = new QPushButton(
        QIcon(BrandEngine::instance().getPixmap(QStringLiteral("graphics.icon.checkin.delete"))),
        tr("&Delete"), this);
    remove->setObjectName(QStringLiteral("delete"));
    connect(remove, &QPushButton::clicked, this, &CheckInView::removeShown);

    _history = new QTreeWidget(this);
    _history->setObjectName(QStringLiteral("history"));
    _history->setRootIsDecorated(false);
    _history->setHeaderLabels({tr("Date"), tr("Weight"), tr("Change"), tr("Waist"), tr("Note")});
    connect(_history, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem *item) {
        setDate(QDate::fromString(item->data(0, Qt::UserRole).toString(), QStringLiteral("yyyyMMdd")));
    });

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(saveButton);
    buttons->addWidget(today);
    buttons->addStretch();
    buttons->addWidget(remove);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(_title);
    layout->addLayout(form);
    layout->addLayout(buttons);
    layout->addWidget(new QLabel(tr("Earlier check-ins (Enter to open):"), this));
    layout->addWidget(_history, 1);
}

void CheckInView::setUser(int user_id)
{
    _userId = user_id;
    refresh();
}

void CheckInView::setDate(const QDate &date)
{
    if (!date.isValid() || date == _date)
        return;
    // What was typed for the day left is kept.
    if (edited())
        save();
    _date = date;
    refresh();
}

void CheckInView::refresh()
{
    _title->setText(tr("Check-in for %1").arg(DateConversion::longDayName(_date)));
    if (_userId < 0)
        return;
    const std::optional<CheckIn> checkIn = UserDB::getCheckIn(_userId, DateConversion::fromQDate(_date));
    const CheckIn c = checkIn.value_or(CheckIn());
    showValue(_weight, weightUnit(), c.weight);
    showValue(_chest, lengthUnit(), c.chest);
    showValue(_waist, lengthUnit(), c.waist);
    showValue(_hip, lengthUnit(), c.hip);
    showValue(_thigh, lengthUnit(), c.thigh);
    _steps->setValue(c.steps >= 0 ? int(c.steps) : -1);
    _note->setText(c.note);
    _shown = formText();

    _historyStale = true;
    if (isVisible())
        fillHistory();
}

void CheckInView::showEvent(QShowEvent *event)
{
    if (_historyStale)
        fillHistory(); // years of check-ins wait until someone looks
    QWidget::showEvent(event);
}

void CheckInView::fillHistory()
{
    _historyStale = false;
    _history->clear();
    if (_userId < 0)
        return;
    const QString shown = DateConversion::fromQDate(_date);
    const QList<CheckIn> all = UserDB::getCheckIns(_userId);
    // Oldest first, so that each weight is set against the one weighed before it.
    QList<QTreeWidgetItem *> items;
    // Changes are taken between the weights as shown (to a tenth), so that the column adds up.
    const auto shownWeight = [](double stored) {
        return std::round(weightUnit().toDisplay(stored) * 10) / 10;
    };
    double before = -1;
    for (auto it = all.crbegin(); it != all.crend() && it->date < shown; ++it) {
        const CheckIn &earlier = *it;
        QString change;
        if (earlier.weight > 0 && before > 0) {
            const double difference = shownWeight(earlier.weight) - shownWeight(before);
            change = weightUnit().formatSignedWithUnit(weightUnit().fromDisplayValue(difference));
            if (difference > 0.05)
                change.prepend(QLatin1Char('+'));
        }
        if (earlier.weight > 0)
            before = earlier.weight;
        auto *item = new QTreeWidgetItem(
            {DateConversion::toWebDate(earlier.date),
             earlier.weight > 0 ? weightUnit().formatValueWithUnit(earlier.weight) : QString(), change,
             earlier.waist > 0 ? lengthUnit().formatValueWithUnit(earlier.waist) : QString(), earlier.note});
        item->setData(0, Qt::UserRole, earlier.date);
        item->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
        items.prepend(item);
    }
    _history->addTopLevelItems(items);
}

CheckIn CheckInView::formValues() const
{
    CheckIn c;
    c.date = DateConversion::fromQDate(_date);
    c.weight = stored(_weight, weightUnit());
    c.chest = stored(_chest, lengthUnit());
    c.waist = stored(_waist, lengthUnit());
    c.hip = stored(_hip, lengthUnit());
    c.thigh = stored(_thigh, lengthUnit());
    c.steps = _steps->value() >= 0 ? _steps->value() : -1;
    c.note = _note->text().trimmed();
    return c;
}

QString CheckInView::formText() const
{
    QStringList fields;
    for (const QDoubleSpinBox *box : {_weight, _chest, _waist, _hip, _thigh})
        fields.append(box->text());
    return fields.join(QLatin1Char('\n')) + _steps->text() + QLatin1Char('\n') + _note->text();
}

bool CheckInView::edited() const
{
    return _userId >= 0 && formText() != _shown;
}

bool CheckInView::save()
{
    if (_userId < 0)
        return false;
    const CheckIn c = formValues();
    if (c.weight < 0 && c.chest < 0 && c.waist < 0 && c.hip < 0 && c.thigh < 0 && c.steps < 0 &&
        c.note.isEmpty()) {
        QMessageBox::information(this, tr("Check-in"), tr("Enter at least one measurement or a note."));
        return false;
    }
    UserDB::setCheckIn(_userId, c);
    refresh();
    emit checkInChanged();
    return true;
}

void CheckInView::keyPressEvent(QKeyEvent *event)
{
    // The fields let Enter through: it saves, as the button does.
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && !_history->hasFocus()) {
        save();
        return;
    }
    QWidget::keyPressEvent(event);
}

void CheckInView::removeShown()
{
    const QString day = DateConversion::fromQDate(_date);
    if (_userId < 0 || !UserDB::getCheckIn(_userId, day))
        return;
    if (QMessageBox::question(this, tr("Check-in"),
                              tr("Delete the check-in of %1?").arg(DateConversion::toWebDate(day))) !=
        QMessageBox::Yes)
        return;
    UserDB::removeCheckIn(_userId, day);
    refresh();
    emit checkInChanged();
}
