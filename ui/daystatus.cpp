#include "ui/daystatus.h"

#include "model/unitdescriptor.h"

#include <QGridLayout>
#include <QLabel>
#include <QLocale>
#include <QPalette>
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
    , _water(new QLabel(this))
    , _waterBar(new QProgressBar(this))
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
    _energy->setText(energyStandingText(standing, true));

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
        const Row &row = _rows.at(i);
        row.figures->setText(nutrientFiguresText(n));
        row.bar->setValue(n.hasTarget() ? int(std::min(100.0f, std::round(100.0f * n.eaten / n.target))) : 0);
        row.bar->setFormat(nutrientRemainingText(n));
        row.bar->setProperty("offTrack", n.offTrack());
        // Red over a limit, amber short of a goal. Through the palette, not a style sheet, so the
        // bar keeps the style's look and its centred label.
        QPalette palette;
        if (n.offTrack())
            palette.setColor(QPalette::Highlight,
                             n.limit ? QColor(0xc0, 0x39, 0x2b) : QColor(0xd6, 0x89, 0x10));
        row.bar->setPalette(palette);
    }
    _nutrients->setColumnStretch(2, 1);
    _shares->setText(energySharesText(standing));
}
