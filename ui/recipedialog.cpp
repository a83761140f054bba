#include "ui/recipedialog.h"

#include "app/profilepreferences.h"
#include "model/daystanding.h"
#include "model/quantitytext.h"
#include "model/unitdescriptor.h"
#include "ui/daymodel.h"
#include "ui/foodpicker.h"
#include "ui/formlayouts.h"
#include "ui/keyfilter.h"
#include "ui/quantityspinbox.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

QString energyText(float calories)
{
    return UnitRegistry::instance().getUnit(UNIT_ENERGY)->formatValueWithUnit(calories);
}

} // namespace

void fillMeals(QComboBox *meals, int userId)
{
    meals->clear();
    for (const auto &[meal, name] : DayModel::meals(ProfilePreferences::load(userId).snackMode))
        meals->addItem(name, meal);
}

RecipeDialog::RecipeDialog(int userId, FoodDB *foods, Recipe recipe, QWidget *parent)
    : QDialog(parent)
    , _recipe(std::move(recipe))
{
    setWindowTitle(_recipe.id < 0 ? tr("New Recipe") : tr("Edit Recipe"));
    setObjectName(QStringLiteral("recipe"));
    setProperty("helpPage", QStringLiteral("recipes-and-meals"));
    if (_recipe.user_id < 0 && _recipe.id < 0)
        _recipe.user_id = userId;
    _name = new QLineEdit(_recipe.name, this);
    _name->setObjectName(QStringLiteral("name"));
    _name->setMaxLength(200);
    _portions = new QDoubleSpinBox(this);
    _portions->setObjectName(QStringLiteral("portions"));
    _portions->setRange(0.5, 1000);
    _portions->setDecimals(1);
    _portions->setValue(_recipe.portions);
    _cooked = new QDoubleSpinBox(this);
    _cooked->setObjectName(QStringLiteral("cookedWeight"));
    _cooked->setRange(0, 100000);
    _cooked->setDecimals(0);
    _cooked->setSuffix(QStringLiteral(" g"));
    _cooked->setSpecialValueText(tr("Not weighed"));
    _cooked->setValue(std::max(_recipe.cookedWeight, 0.0));
    _cooked->setToolTip(tr("The weight of the cooked dish, to log it by the gram"));

    _ingredients = new QTableWidget(0, 3, this);
    _ingredients->setObjectName(QStringLiteral("ingredients"));
    _ingredients->setHorizontalHeaderLabels({tr("Ingredient"), tr("Amount"), tr("Energy")});
    _ingredients->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    _ingredients->verticalHeader()->hide();
    _ingredients->setSelectionBehavior(QAbstractItemView::SelectRows);
    _ingredients->setEditTriggers(QAbstractItemView::NoEditTriggers);
    _ingredients->installEventFilter(new KeyFilter(this, Qt::Key_Delete, [this] { removeIngredient(); }));
    auto *remove = new QPushButton(tr("&Remove Ingredient"), this);
    connect(remove, &QPushButton::clicked, this, &RecipeDialog::removeIngredient);
    _totals = new QLabel(this);
    _totals->setObjectName(QStringLiteral("recipeTotals"));
    _totals->setWordWrap(true);

    auto *picker = new FoodPicker(userId, foods, this);
    connect(picker, &FoodPicker::picked, this, [this](const FoodDiaryItem &food) {
        _recipe.ingredients.append(food);
        refresh();
    });
    connect(_portions, &QDoubleSpinBox::valueChanged, this, &RecipeDialog::refresh);

    auto *form = new QFormLayout;
    compactFigures(form, {_portions, _cooked});
    form->addRow(tr("&Name:"), _name);
    form->addRow(tr("&Portions:"), _portions);
    form->addRow(tr("&Cooked weight:"), _cooked);
    auto *columns = new QHBoxLayout;
    auto *left = new QVBoxLayout;
    left->addWidget(new QLabel(tr("Add an ingredient:"), this));
    left->addWidget(picker, 1);
    auto *right = new QVBoxLayout;
    right->addWidget(_ingredients, 1);
    right->addWidget(remove, 0, Qt::AlignLeft);
    right->addWidget(_totals);
    columns->addLayout(left, 2);
    columns->addLayout(right, 3);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &RecipeDialog::accept);
    // Enter belongs to the ingredient search here, so saving has a key of its own.
    connect(new QShortcut(QKeySequence::Save, this), &QShortcut::activated, this, &RecipeDialog::accept);
    buttons->button(QDialogButtonBox::Save)
        ->setToolTip(QKeySequence(QKeySequence::Save).toString(QKeySequence::NativeText));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addLayout(columns, 1);
    layout->addWidget(buttons);
    resize(820, 480);
    // Name, size, then ingredients, as the eye reads the dialog.
    const QList<QWidget *> order = QList<QWidget *>{_name, _portions, _cooked} + picker->tabOrder() +
                                   QList<QWidget *>{_ingredients, remove, buttons};
    for (qsizetype i = 1; i < order.size(); ++i)
        setTabOrder(order.at(i - 1), order.at(i));
    _name->setFocus();
    refresh();
}

void RecipeDialog::refresh()
{
    _recipe.portions = _portions->value();
    _ingredients->setRowCount(int(_recipe.ingredients.size()));
    for (int row = 0; row < _recipe.ingredients.size(); ++row) {
        const FoodDiaryItem &item = _recipe.ingredients.at(row);
        auto *name = new QTableWidgetItem(item.food_name);
        name->setToolTip(item.food_name);
        auto *amount =
            new QTableWidgetItem(QStringLiteral("%1 x %2").arg(quantityText(item.size), item.serv_name));
        auto *energy = new QTableWidgetItem(energyText(item.getNutrient(ENERGY)));
        energy->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        _ingredients->setItem(row, 0, name);
        _ingredients->setItem(row, 1, amount);
        _ingredients->setItem(row, 2, energy);
    }
    _ingredients->resizeColumnToContents(1);
    _ingredients->resizeColumnToContents(2);
    _totals->setText(_recipe.ingredients.isEmpty() ? tr("No ingredients yet.")
                                                   : tr("Whole dish: %1\nA portion: %2")
                                                         .arg(energyText(_recipe.whole().getNutrient(ENERGY)),
                                                              mainValuesText(_recipe.portion())));
}

void RecipeDialog::removeIngredient()
{
    const int row = _ingredients->currentRow();
    if (row < 0 || row >= _recipe.ingredients.size())
        return;
    _recipe.ingredients.removeAt(row);
    refresh();
    _ingredients->setCurrentCell(std::min(row, _ingredients->rowCount() - 1), 0);
}

void RecipeDialog::accept()
{
    _recipe.name = _name->text().trimmed();
    _recipe.portions = _portions->value();
    _recipe.cookedWeight = _cooked->value() > 0 ? _cooked->value() : -1.0;
    if (_recipe.name.isEmpty() || _recipe.ingredients.isEmpty()) {
        QMessageBox::information(this, windowTitle(),
                                 tr("A recipe needs a name and at least one ingredient."));
        return;
    }
    if (!RecipeDB::save(_recipe)) {
        QMessageBox::warning(this, windowTitle(), tr("The recipe could not be stored."));
        return;
    }
    QDialog::accept();
}

RecipesDialog::RecipesDialog(int userId, FoodDB *foods, int meal, Log log, QWidget *parent)
    : QDialog(parent)
    , _userId(userId)
    , _foods(foods)
    , _log(std::move(log))
{
    setWindowTitle(tr("Recipes"));
    setObjectName(QStringLiteral("recipes"));
    setProperty("helpPage", QStringLiteral("recipes-and-meals"));
    _list = new QListWidget(this);
    _list->setObjectName(QStringLiteral("recipeList"));
    _emptyHint = new QLabel(tr("No recipes yet. New... builds one from its ingredients and the number of "
                               "portions it makes; it is then logged like a food."),
                            this);
    _emptyHint->setObjectName(QStringLiteral("noRecipes"));
    _emptyHint->setWordWrap(true);
    auto *add = new QPushButton(tr("&New..."), this);
    add->setObjectName(QStringLiteral("newRecipe"));
    auto *change = new QPushButton(tr("&Edit..."), this);
    auto *remove = new QPushButton(tr("&Remove"), this);
    connect(add, &QPushButton::clicked, this, [this] { edit(-1); });
    connect(new QShortcut(QKeySequence::New, this), &QShortcut::activated, this, [this] { edit(-1); });
    connect(change, &QPushButton::clicked, this, [this] {
        if (const auto recipe = current())
            edit(recipe->id);
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        const auto recipe = current();
        if (recipe && QMessageBox::question(
                          this, windowTitle(),
                          tr("Remove the recipe %1? Days it was logged on keep it.").arg(recipe->name)) ==
                          QMessageBox::Yes) {
            RecipeDB::remove(recipe->id);
            refresh();
        }
    });

    _meal = new QComboBox(this);
    _meal->setObjectName(QStringLiteral("recipeMeal"));
    fillMeals(_meal, userId);
    _meal->setCurrentIndex(std::max(0, _meal->findData(meal)));
    _amount = new QuantitySpinBox(this);
    _amount->setObjectName(QStringLiteral("recipeAmount"));
    _amount->setRange(0.01, 100000);
    _amount->setValue(1);
    _unit = new QComboBox(this);
    _unit->setObjectName(QStringLiteral("recipeUnit"));
    auto *logButton = new QPushButton(tr("&Log"), this);
    logButton->setObjectName(QStringLiteral("logRecipe"));
    logButton->setDefault(true);
    connect(logButton, &QPushButton::clicked, this, &RecipesDialog::logCurrent);
    connect(_list, &QListWidget::currentRowChanged, this, &RecipesDialog::updateUnits);
    connect(_list, &QListWidget::itemActivated, this, &RecipesDialog::logCurrent);

    auto *side = new QVBoxLayout;
    side->addWidget(add);
    side->addWidget(change);
    side->addWidget(remove);
    side->addStretch();
    auto *lists = new QVBoxLayout;
    lists->addWidget(_emptyHint);
    lists->addWidget(_list, 1);
    auto *top = new QHBoxLayout;
    top->addLayout(lists, 1);
    top->addLayout(side);
    _needRecipe = {change, remove, _meal, _amount, _unit, logButton};
    auto *logRow = new QHBoxLayout;
    logRow->addWidget(new QLabel(tr("Log to"), this));
    logRow->addWidget(_meal);
    logRow->addWidget(_amount);
    logRow->addWidget(_unit);
    logRow->addWidget(logButton);
    auto *close = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top, 1);
    layout->addLayout(logRow);
    layout->addWidget(close);
    refresh();
}

void RecipesDialog::refresh(int select)
{
    _list->clear();
    for (const auto &[id, name] : RecipeDB::list(_userId)) {
        const auto recipe = RecipeDB::get(id, _userId);
        if (!recipe)
            continue;
        const QString text =
            tr("%1 \u2014 %2 a portion").arg(name, energyText(recipe->portion().getNutrient(ENERGY)));
        auto *item = new QListWidgetItem(text, _list);
        item->setData(Qt::UserRole, id);
        item->setToolTip(text);
        if (id == select)
            _list->setCurrentItem(item);
    }
    if (!_list->currentItem() && _list->count() > 0)
        _list->setCurrentRow(0);
    _emptyHint->setVisible(_list->count() == 0);
    updateUnits();
}

std::optional<Recipe> RecipesDialog::current() const
{
    const QListWidgetItem *item = _list->currentItem();
    return item ? RecipeDB::get(item->data(Qt::UserRole).toInt(), _userId) : std::nullopt;
}

void RecipesDialog::updateUnits()
{
    const auto recipe = current();
    const int wasGrams = _unit->currentIndex() == 1;
    _unit->clear();
    _unit->addItem(tr("portions"));
    if (recipe && recipe->cookedWeight > 0)
        _unit->addItem(tr("g"));
    _unit->setCurrentIndex(wasGrams && _unit->count() > 1 ? 1 : 0);
    for (QWidget *w : std::as_const(_needRecipe))
        w->setEnabled(recipe.has_value());
}

void RecipesDialog::edit(int id)
{
    Recipe recipe;
    if (id >= 0) {
        const auto stored = RecipeDB::get(id, _userId);
        if (!stored)
            return;
        recipe = *stored;
    }
    RecipeDialog dialog(_userId, _foods, recipe, this);
    if (dialog.exec() == QDialog::Accepted)
        refresh(dialog.recipe().id);
}

bool RecipesDialog::logCurrent()
{
    const auto recipe = current();
    if (!recipe)
        return false;
    const bool grams = _unit->currentIndex() == 1;
    return _log(*recipe, _meal->currentData().toInt(), grams ? 0.0 : _amount->value(),
                grams ? _amount->value() : 0.0);
}
