#include "ui/savedmealsdialog.h"

#include "model/quantitytext.h"
#include "model/unitdescriptor.h"
#include "staticdb/fooddb.h"
#include "ui/keyfilter.h"
#include "ui/quantityspinbox.h"
#include "ui/recipedialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

// A food's quantity as the diary shows and takes it: "0.33", "1.5"; typed as a fraction too.
class QuantityDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QString displayText(const QVariant &value, const QLocale &) const override
    {
        return quantityText(value.toDouble());
    }
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &, const QModelIndex &) const override
    {
        return QuantitySpinBox::inCell(parent);
    }
    void setEditorData(QWidget *editor, const QModelIndex &index) const override
    {
        static_cast<QuantitySpinBox *>(editor)->setValue(index.data(Qt::EditRole).toDouble());
    }
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override
    {
        // Left as shown (a third as 0.333), the amount stays its own.
        const double stored = index.data(Qt::EditRole).toDouble();
        model->setData(index, static_cast<QuantitySpinBox *>(editor)->valueKeeping(stored), Qt::EditRole);
    }
};

} // namespace

SavedMealsDialog::SavedMealsDialog(int userId, FoodDB *foods, int meal, Log log, QWidget *parent)
    : QDialog(parent)
    , _userId(userId)
    , _foodDB(foods)
    , _log(std::move(log))
{
    setWindowTitle(tr("Saved Meals"));
    setObjectName(QStringLiteral("savedMeals"));
    setProperty("helpPage", QStringLiteral("recipes-and-meals"));
    _meals = new QListWidget(this);
    _meals->setObjectName(QStringLiteral("savedMealList"));
    _table = new QTableWidget(0, 4, this);
    _table->setObjectName(QStringLiteral("savedMealFoods"));
    _table->setHorizontalHeaderLabels({tr("Food"), tr("Quantity"), tr("Serving"), tr("Energy")});
    _table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    _table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    _table->verticalHeader()->hide();
    _table->setWordWrap(false);
    _table->setSelectionBehavior(QAbstractItemView::SelectRows);
    _table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                            QAbstractItemView::AnyKeyPressed);
    _table->setItemDelegateForColumn(1, new QuantityDelegate(_table));
    auto *removeFood = new QPushButton(tr("Remove &Food"), this);
    const auto remove = [this] {
        const int row = _table->currentRow();
        if (row < 0 || row >= _foods.size())
            return;
        _foods.removeAt(row);
        if (store())
            showFoods();
    };
    connect(removeFood, &QPushButton::clicked, this, remove);
    _table->installEventFilter(new KeyFilter(this, Qt::Key_Delete, remove));
    connect(_table, &QTableWidget::cellChanged, this, &SavedMealsDialog::quantityChanged);

    auto *rename = new QPushButton(tr("Re&name..."), this);
    connect(rename, &QPushButton::clicked, this, [this] {
        const int id = currentMeal();
        if (id < 0)
            return;
        bool ok = false;
        const QString name = QInputDialog::getText(this, tr("Rename Saved Meal"), tr("Name:"),
                                                   QLineEdit::Normal, _meals->currentItem()->text(), &ok)
                                 .trimmed();
        if (ok && !name.isEmpty() && SavedMealDB::renameMeal(id, name))
            refreshMeals(id);
    });
    auto *deleteMeal = new QPushButton(tr("&Delete Meal"), this);
    connect(deleteMeal, &QPushButton::clicked, this, [this] {
        const int id = currentMeal();
        if (id >= 0 &&
            QMessageBox::question(this, windowTitle(),
                                  tr("Delete the saved meal %1? Days it was logged on keep their foods.")
                                      .arg(_meals->currentItem()->text())) == QMessageBox::Yes &&
            SavedMealDB::deleteMeal(id))
            refreshMeals();
    });

    _meal = new QComboBox(this);
    _meal->setObjectName(QStringLiteral("savedMealMeal"));
    fillMeals(_meal, userId);
    _meal->setCurrentIndex(std::max(0, _meal->findData(meal)));
    auto *logButton = new QPushButton(tr("&Log Ticked Foods"), this);
    logButton->setObjectName(QStringLiteral("logSavedMeal"));
    logButton->setDefault(true);
    connect(logButton, &QPushButton::clicked, this, &SavedMealsDialog::logTicked);

    auto *mealButtons = new QVBoxLayout;
    mealButtons->addWidget(rename);
    mealButtons->addWidget(deleteMeal);
    mealButtons->addWidget(removeFood);
    mealButtons->addStretch();
    _emptyHint = new QLabel(tr("No saved meals yet. To save one, right-click a meal in the diary and "
                               "choose Save as a Meal."),
                            this);
    _emptyHint->setObjectName(QStringLiteral("noSavedMeals"));
    _emptyHint->setWordWrap(true);
    auto *lists = new QHBoxLayout;
    lists->addWidget(_meals, 1);
    lists->addWidget(_table, 3);
    auto *left = new QVBoxLayout;
    left->addWidget(_emptyHint);
    left->addLayout(lists, 1);
    auto *top = new QHBoxLayout;
    top->addLayout(left, 1);
    top->addLayout(mealButtons);
    _needMeal = {rename, deleteMeal, removeFood, _meal, logButton};
    auto *logRow = new QHBoxLayout;
    logRow->addStretch();
    logRow->addWidget(new QLabel(tr("Log to"), this));
    logRow->addWidget(_meal);
    logRow->addWidget(logButton);
    auto *close = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top, 1);
    layout->addLayout(logRow);
    layout->addWidget(close);
    resize(900, 420);

    connect(_meals, &QListWidget::currentRowChanged, this, &SavedMealsDialog::showFoods);
    refreshMeals();
}

int SavedMealsDialog::currentMeal() const
{
    const QListWidgetItem *item = _meals->currentItem();
    return item ? item->data(Qt::UserRole).toInt() : -1;
}

void SavedMealsDialog::refreshMeals(int select)
{
    const QSignalBlocker blocker(_meals);
    _meals->clear();
    const QList<QPair<int, QString>> meals = SavedMealDB::getMeals(SavedMealDB::categoryOf(_userId)) +
                                             SavedMealDB::getMeals(SavedMealDB::kSharedCategory);
    for (const auto &[id, name] : meals) {
        auto *item = new QListWidgetItem(name, _meals);
        item->setData(Qt::UserRole, id);
        if (id == select)
            _meals->setCurrentItem(item);
    }
    if (!_meals->currentItem() && _meals->count() > 0)
        _meals->setCurrentRow(0);
    _emptyHint->setVisible(_meals->count() == 0);
    for (QWidget *w : std::as_const(_needMeal))
        w->setEnabled(_meals->count() > 0);
    showFoods();
}

void SavedMealsDialog::showFoods()
{
    const int id = currentMeal();
    _foods = id >= 0 ? SavedMealDB::getMealFoods(id) : QList<FoodDiaryItem>();
    const QSignalBlocker blocker(_table);
    _table->setRowCount(int(_foods.size()));
    const UnitDescriptor &energy = *UnitRegistry::instance().getUnit(UNIT_ENERGY);
    for (int row = 0; row < _foods.size(); ++row) {
        const FoodDiaryItem &food = _foods.at(row);
        auto *name = new QTableWidgetItem(food.food_name);
        name->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        name->setCheckState(Qt::Checked);
        name->setToolTip(food.food_name);
        auto *quantity = new QTableWidgetItem;
        quantity->setData(Qt::EditRole, double(food.size));
        quantity->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        auto *serving = new QTableWidgetItem(food.serv_name);
        serving->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        auto *calories = new QTableWidgetItem(energy.formatValueWithUnit(food.getNutrient(ENERGY)));
        calories->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        calories->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        _table->setItem(row, 0, name);
        _table->setItem(row, 1, quantity);
        _table->setItem(row, 2, serving);
        _table->setItem(row, 3, calories);
    }
}

void SavedMealsDialog::quantityChanged(int row, int column)
{
    if (column != 1 || row < 0 || row >= _foods.size())
        return;
    const double quantity = _table->item(row, 1)->data(Qt::EditRole).toDouble();
    FoodDiaryItem &food = _foods[row];
    if (quantity <= 0 || qFuzzyCompare(float(quantity), food.size)) {
        showFoods();
        return;
    }
    // From the food's own values while the database has it; else the stored values scale.
    if (food.ref_id >= 0 && _foodDB && _foodDB->contains(food.ref_id) && food.loadFoodInfo(true)) {
        food.setSize(float(quantity));
    } else {
        food.scale(float(quantity) / food.size);
        food.size = float(quantity);
    }
    const int selected = row;
    store();
    showFoods();
    _table->setCurrentCell(selected, 1);
}

bool SavedMealsDialog::store()
{
    const int id = currentMeal();
    if (id >= 0 && SavedMealDB::setMealFoods(id, _foods))
        return true;
    QMessageBox::warning(this, windowTitle(), tr("The saved meal could not be changed."));
    return false;
}

bool SavedMealsDialog::logTicked()
{
    QList<FoodDiaryItem> ticked;
    for (int row = 0; row < _foods.size(); ++row) {
        if (_table->item(row, 0)->checkState() == Qt::Checked)
            ticked.append(_foods.at(row));
    }
    return !ticked.isEmpty() && _log(ticked, _meal->currentData().toInt());
}
