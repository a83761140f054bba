#pragma once

// A food chosen by name with its serving and quantity: the search of the food browser in a
// compact form, for dialogs that build a list of foods (a recipe's ingredients).

#include "model/dbtypes.h"
#include "staticdb/searchranking.h"

#include <QWidget>

#include <optional>

class FoodDB;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

class FoodPicker : public QWidget
{
    Q_OBJECT

public:
    FoodPicker(int userId, FoodDB *foods, QWidget *parent = nullptr);

    void search(const QString &query);
    // The chosen food for its serving and quantity; none while nothing is chosen.
    std::optional<FoodDiaryItem> current() const;
    // Where Tab goes: the words, the matches, the quantity, the serving, Add.
    QList<QWidget *> tabOrder() const;

signals:
    void picked(const FoodDiaryItem &food); // the Add button, or Enter in the quantity

private:
    void choose();
    void pick();

    FoodDB *_foods;
    bool _metric;
    SearchHistory _history;
    QHash<int, QString> _energies; // what one usual serving of a food brings, worked out once
    QLineEdit *_query;
    QListWidget *_matches;
    QComboBox *_serving;
    QDoubleSpinBox *_quantity;
    QLabel *_preview;
    QPushButton *_add;
};
