#include "ui/daystatus.h"

#include "model/unitdescriptor.h"

#include <QGridLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QVBoxLayout>

#include <cmath>

namespace {

constexpr int kWaterRow = 100;

} // namespace

DayStatus::DayStatus(QWidget *parent)
    : QWidget(parent)
    , _energy(new QLabel(this))
    , _shares(new QLabel(this))
    , _nutrients(new QGridLayout)
    , _water(new QLabel(this))
    , _waterBar(new QProgressBar(this))
{
    setObjectName(QStringLiteral("dayStatus"));
    _energy->setObjectName(QStringLiteral("energyStanding"));
    _shares->setObjectName(QStringLiteral("energyShares"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_energy);
    layout->addLayout(_nutrients);
    layout->addWidget(_shares);
    _water->setObjectName(QStringLiteral("waterStanding"));
    _water->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    _waterBar->setObjectName(QStringLiteral("standingWater"));
    _waterBar->setMaximumHeight(fontMetrics().height());
    // Below every nutrient's row, however many there are.
    _nutrients->addWidget(new QLabel(tr("Water"), this), kWaterRow, 0);
    _nutrients->addWidget(_water, kWaterRow, 1);
    _nutrients->addWidget(_waterBar, kWaterRow, 2);
}

void DayStatus::setWater(int glasses, int goal)
{
    _water->setText(tr("%1 of %2 glasses").arg(glasses).arg(goal));
    _waterBar->setRange(0, std::max(goal, 1));
    _waterBar->setValue(std::min(glasses, goal));
    _waterBar->setFormat(glasses >= goal ? tr("done") : tr("%n more", nullptr, goal - glasses));
}

void DayStatus::setStanding(const DayStanding &standing)
{
    const UnitRegistry &units = UnitRegistry::instance();
    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    QString text = tr("Eaten %1 \u2212 burned %2 = net %3")
                       .arg(energy.formatValue(standing.eaten), energy.formatValue(standing.burned),
                            energy.formatSignedWithUnit(standing.net()));
    if (standing.budget > 0) {
        text += standing.remaining() >= 0 ? tr(" of %1: <b>%2 left</b>")
                                                .arg(energy.formatValue(standing.budget),
                                                     energy.formatValueWithUnit(standing.remaining()))
                                          : tr(" of %1: <b>%2 over</b>")
                                                .arg(energy.formatValue(standing.budget),
                                                     energy.formatValueWithUnit(-standing.remaining()));
    }
    _energy->setText(text);

    // The rows are made again only when the nutrients tracked change: a change of day refills them.
    QList<int> types;
    for (const NutrientStanding &n : standing.nutrients)
        types.append(n.type);
    if (types != _types) {
        for (const Row &row : std::as_const(_rows)) {
            delete row.name;
            delete row.figures;
            delete row.bar;
        }
        _rows.clear();
        for (qsizetype i = 0; i < types.size(); ++i) {
            Row row{new QLabel(units.getUnitForNutrient(types.at(i))->getName(), this), new QLabel(this),
                    new QProgressBar(this)};
            row.figures->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
            row.bar->setObjectName(QStringLiteral("standing%1").arg(types.at(i)));
            row.bar->setRange(0, 100);
            row.bar->setMaximumHeight(fontMetrics().height());
            _nutrients->addWidget(row.name, int(i), 0);
            _nutrients->addWidget(row.figures, int(i), 1);
            _nutrients->addWidget(row.bar, int(i), 2);
            _rows.append(row);
        }
        _types = types;
    }
    for (qsizetype i = 0; i < standing.nutrients.size(); ++i) {
        const NutrientStanding &n = standing.nutrients.at(i);
        const UnitDescriptor &unit = *units.getUnitForNutrient(n.type);
        const Row &row = _rows.at(i);
        row.figures->setText(
            n.hasTarget() ? tr("%1 of %2").arg(unit.formatValue(n.eaten), unit.formatValueWithUnit(n.target))
                          : unit.formatValueWithUnit(n.eaten));
        if (n.hasTarget()) {
            row.bar->setValue(int(std::min(100.0f, std::round(100.0f * n.eaten / n.target))));
            row.bar->setFormat(n.remaining() >= 0
                                   ? tr("%1 left").arg(unit.formatValueWithUnit(n.remaining()))
                                   : tr("%1 over").arg(unit.formatValueWithUnit(-n.remaining())));
        } else {
            row.bar->setValue(0);
            row.bar->setFormat(tr("no target"));
        }
        row.bar->setProperty("offTrack", n.offTrack());
        // Red over a limit, amber short of a goal.
        row.bar->setStyleSheet(n.offTrack()
                                   ? QStringLiteral("QProgressBar::chunk { background: %1; }")
                                         .arg(n.limit ? QStringLiteral("#c0392b") : QStringLiteral("#d68910"))
                                   : QString());
    }
    _nutrients->setColumnStretch(2, 1);
    const auto percent = [](float share) { return QLocale().toString(std::round(share * 100.0f), 'f', 0); };
    _shares->setText(standing.eaten > 0
                         ? tr("Energy from carbohydrate %1%, fat %2%, protein %3%")
                               .arg(percent(standing.energyShares[0]), percent(standing.energyShares[1]),
                                    percent(standing.energyShares[2]))
                         : QString());
}
