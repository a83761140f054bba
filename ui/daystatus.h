#pragma once

// Where the day stands, always in view beside its entries: energy eaten, burned, net, the budget
// and what remains; each nutrient the profile tracks as eaten of its target with a bar, coloured
// when over a limit or short of a goal; the share of energy from carbohydrate, fat and protein;
// water against its daily goal.

#include "model/daystanding.h"

#include <QList>
#include <QWidget>

class QGridLayout;
class QLabel;

class DayStatus : public QWidget
{
    Q_OBJECT

public:
    explicit DayStatus(QWidget *parent = nullptr);

    void setStanding(const DayStanding &standing);
    // Glasses of water drunk against the daily goal.
    void setWater(int glasses, int goal);

private:
    QLabel *_energy;
    QLabel *_shares;
    QLabel *_water;
    class QProgressBar *_waterBar;
    QGridLayout *_nutrients;
    struct Row
    {
        QLabel *name;
        QLabel *figures;
        class QProgressBar *bar;
    };
    QList<Row> _rows;
    QList<int> _types; // the nutrients the rows show
};
