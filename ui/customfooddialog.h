#pragma once

// A food of the user's own: its name, serving and the values of one serving. New, edited, or
// copied from a reference food for the serving chosen there.

#include "staticdb/fooddb.h"

#include <QDialog>

#include <array>

class QDoubleSpinBox;
class QLineEdit;

class CustomFoodDialog : public QDialog
{
    Q_OBJECT

public:
    // food_id -1 makes a new food in category; prefill gives its first name, serving and values.
    CustomFoodDialog(FoodDBDynamic *foods, int food_id, int category, const Food *prefill,
                     QWidget *parent = nullptr);
    int foodId() const { return _foodId; }
    void accept() override;

private:
    FoodDBDynamic *_foods;
    int _foodId;
    int _category;
    QLineEdit *_name;
    QLineEdit *_serving;
    std::array<QDoubleSpinBox *, FV_COUNT> _values{};
};
