#include "ui/daystatus.h"

#include "model/unitdescriptor.h"

#include <QGridLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QVBoxLayout>

#include <cmath>

DayStatus::DayStatus(QWidget *parent)
    : QWidget(parent)
    , _energy(new QLabel(this))
    , _shares(new QLabel(this))
    , _nutrients(new QGridLayout)
{
    setObjectName(QStringLiteral("dayStatus"));
    _energy->setObjectName(QStringLiteral("energyStanding"));
    _shares->setObjectName(QStringLiteral("energyShares"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_energy);
    layout->addLayout(_nutrients);
    layout->addWidget(_shares);
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

    while (QLayoutItem *item = _nutrients->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    int row = 0;
    for (const NutrientStanding &n : standing.nutrients) {
        const UnitDescriptor &unit = *units.getUnitForNutrient(n.type);
        auto *name = new QLabel(unit.getName(), this);
        auto *figures = new QLabel(
            n.hasTarget() ? tr("%1 of %2").arg(unit.formatValue(n.eaten), unit.formatValueWithUnit(n.target))
                          : unit.formatValueWithUnit(n.eaten),
            this);
        figures->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        auto *bar = new QProgressBar(this);
        bar->setObjectName(QStringLiteral("standing%1").arg(n.type));
        bar->setRange(0, 100);
        bar->setTextVisible(true);
        bar->setMaximumHeight(fontMetrics().height());
        if (n.hasTarget()) {
            bar->setValue(int(std::min(100.0f, std::round(100.0f * n.eaten / n.target))));
            bar->setFormat(n.remaining() >= 0 ? tr("%1 left").arg(unit.formatValueWithUnit(n.remaining()))
                                              : tr("%1 over").arg(unit.formatValueWithUnit(-n.remaining())));
        } else {
            bar->setValue(0);
            bar->setFormat(tr("no target"));
        }
        bar->setProperty("offTrack", n.offTrack());
        if (n.offTrack()) {
            // Red over a limit, amber short of a goal.
            bar->setStyleSheet(QStringLiteral("QProgressBar::chunk { background: %1; }")
                                   .arg(n.limit ? QStringLiteral("#c0392b") : QStringLiteral("#d68910")));
        }
        _nutrients->addWidget(name, row, 0);
        _nutrients->addWidget(figures, row, 1);
        _nutrients->addWidget(bar, row, 2);
        ++row;
    }
    _nutrients->setColumnStretch(2, 1);
    const auto percent = [](float share) { return QLocale().toString(std::round(share * 100.0f), 'f', 0); };
    _shares->setText(standing.eaten > 0
                         ? tr("Energy from carbohydrate %1%, fat %2%, protein %3%")
                               .arg(percent(standing.energyShares[0]), percent(standing.energyShares[1]),
                                    percent(standing.energyShares[2]))
                         : QString());
}
