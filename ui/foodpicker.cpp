#include "ui/foodpicker.h"

#include "db/userdb.h"
#include "model/unitdescriptor.h"
#include "staticdb/fooddb.h"
#include "staticdb/itemsearch.h"
#include "ui/keyfilter.h"
#include "ui/matchdelegate.h"
#include "ui/quantityspinbox.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>

namespace {

constexpr qsizetype kShownMatches = 50;

} // namespace

FoodPicker::FoodPicker(int userId, FoodDB *foods, QWidget *parent)
    : QWidget(parent)
    , _foods(foods)
    , _metric(UserDB::getSettings(userId).measurement_units == 0)
    , _history(loadSearchHistory(userId, false))
{
    _query = new QLineEdit(this);
    _query->setObjectName(QStringLiteral("pickerSearch"));
    _query->setPlaceholderText(tr("Search foods"));
    addClearButton(_query);
    _matches = new QListWidget(this);
    _matches->setObjectName(QStringLiteral("pickerMatches"));
    _matches->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // As the food search shows them: whole names, and what one of each brings.
    _matches->setItemDelegate(new MatchDelegate(_matches));
    _matches->setResizeMode(QListView::Adjust);
    _serving = new QComboBox(this);
    _serving->setObjectName(QStringLiteral("pickerServing"));
    _quantity = new QuantitySpinBox(this);
    _quantity->setObjectName(QStringLiteral("pickerQuantity"));
    _quantity->setRange(0.01, 100000);
    _quantity->setValue(1);
    _preview = new QLabel(this);
    _add = new QPushButton(tr("&Add"), this);
    _add->setObjectName(QStringLiteral("pickerAdd"));
    _add->setEnabled(false);

    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(_query, 0, 0, 1, 4);
    layout->addWidget(_matches, 1, 0, 1, 4);
    layout->addWidget(_quantity, 2, 0);
    layout->addWidget(_serving, 2, 1, 1, 2);
    layout->addWidget(_add, 2, 3);
    layout->addWidget(_preview, 3, 0, 1, 4);
    layout->setColumnStretch(1, 1);

    connect(_query, &QLineEdit::textChanged, this, &FoodPicker::search);
    connect(_matches, &QListWidget::currentRowChanged, this, &FoodPicker::choose);
    const auto preview = [this] {
        const auto food = current();
        _preview->setText(food ? UnitRegistry::instance()
                                     .getUnit(UNIT_ENERGY)
                                     ->formatValueWithUnit(food->getNutrient(ENERGY))
                               : QString());
    };
    connect(_serving, &QComboBox::currentIndexChanged, this, preview);
    connect(_quantity, &QDoubleSpinBox::valueChanged, this, preview);
    connect(_add, &QPushButton::clicked, this, &FoodPicker::pick);
    // Down or Enter from the words into the matches; Enter on a match or in the quantity adds.
    const auto intoMatches = [this] {
        if (_matches->count() > 0)
            _matches->setFocus();
    };
    _query->installEventFilter(new KeyFilter(this, Qt::Key_Down, intoMatches));
    _query->installEventFilter(new KeyFilter(this, Qt::Key_Return, intoMatches));
    _matches->installEventFilter(new KeyFilter(this, Qt::Key_Return, [this] { pick(); }));
    _quantity->installEventFilter(new KeyFilter(this, Qt::Key_Return, [this] { pick(); }));
    setFocusProxy(_query);
}

QList<QWidget *> FoodPicker::tabOrder() const
{
    return {_query, _matches, _quantity, _serving, _add};
}

void FoodPicker::search(const QString &query)
{
    _matches->clear();
    if (!_foods || !_foods->staticDB())
        return;
    const ItemSearchResult result =
        searchItems(*_foods->staticDB(), _foods->dynamicDB(), query, _history, kShownMatches);
    for (const FoundItem &found : result.items) {
        auto energy = _energies.constFind(found.id);
        if (energy == _energies.cend())
            energy = _energies.insert(found.id, describeEnergy(foodEnergy(found.id)));
        auto *item = new QListWidgetItem(
            energy->isEmpty() ? found.name : found.name + QStringLiteral(" \u2014 ") + *energy, _matches);
        item->setData(Qt::UserRole, found.id);
        item->setData(MatchDelegate::kNameRole, found.name);
        item->setData(MatchDelegate::kEnergyRole, *energy);
        item->setToolTip(item->text());
    }
    if (_matches->count() > 0)
        _matches->setCurrentRow(0);
}

void FoodPicker::choose()
{
    _serving->clear();
    const QListWidgetItem *item = _matches->currentItem();
    _add->setEnabled(item != nullptr);
    if (!item)
        return;
    FoodDiaryItem food;
    food.changeFood(item->data(Qt::UserRole).toInt());
    const QList<FoodServing> servings = servingsInOrder(food.getServings(), _metric);
    for (const FoodServing &serving : servings)
        _serving->addItem(serving.name, serving.id);
    const ServingChoice usual = preferredServing(servings);
    _serving->setCurrentIndex(std::max(0, _serving->findData(usual.servingId)));
    _quantity->setValue(usual.size); // another food starts at one of its usual serving
}

std::optional<FoodDiaryItem> FoodPicker::current() const
{
    const QListWidgetItem *item = _matches->currentItem();
    if (!item || _serving->currentIndex() < 0)
        return std::nullopt;
    FoodDiaryItem food;
    food.changeFood(item->data(Qt::UserRole).toInt());
    food.setServing(_serving->currentData().toInt());
    food.setSize(float(_quantity->value()));
    return food;
}

void FoodPicker::pick()
{
    if (const auto food = current()) {
        emit picked(*food);
        _query->selectAll();
        _query->setFocus();
    }
}
