#pragma once

// Goals and targets after the first day: the goal weight, how fast to get there, the energy
// target from the diet plan or set by hand, carbohydrate, fat and protein in grams or as a share
// of energy, and water; in force from a chosen day, so earlier days keep their targets.

#include "db/goals.h"

#include <QDate>
#include <QDialog>

class QComboBox;
class QDateEdit;
class QDoubleSpinBox;
class QLabel;
class QRadioButton;
class QSpinBox;

class GoalsDialog : public QDialog
{
    Q_OBJECT

public:
    GoalsDialog(int userId, const QDate &day, QWidget *parent = nullptr);

    void accept() override;

private:
    void load();
    void updatePlan();
    double rate() const;

    struct Share
    {
        int type;
        QDoubleSpinBox *value;
        QComboBox *unit;
        bool edited = false;
    };

    int _userId;
    GoalsInForce _before;
    QDateEdit *_from;
    QDoubleSpinBox *_weight;
    QComboBox *_rate;
    QRadioButton *_fromPlan;
    QRadioButton *_byHand;
    QSpinBox *_calories;
    QLabel *_planned;
    QList<Share> _shares;
    QSpinBox *_water;
};
