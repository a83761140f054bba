// The lower half of the browser: the chosen item, the meal, serving and quantity to add it with
// and what that brings, and the adding itself (from the list, the button or a drop on the day).

#include "ui/itembrowser.h"

#include "db/diaryedits.h"
#include "model/dateconversion.h"
#include "model/daystanding.h"
#include "model/quantitytext.h"
#include "model/unitdescriptor.h"
#include "staticdb/exdb.h"
#include "staticdb/fooddb.h"
#include "ui/diarycommands.h"
#include "ui/nutrientsdialog.h"

#include <QApplication>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QTime>

#include <algorithm>

namespace {

constexpr float kLargeEntryCalories = 5000.0f; // an entry above this asks first

QString number(double value)
{
    return QLocale::c().toString(value, 'g', 6);
}

} // namespace

void ItemBrowser::chooseMealOfNow()
{
    _meal->setCurrentIndex(std::max(0, _meal->findData(mealAtTime(QTime::currentTime()))));
}

bool ItemBrowser::dropItem(const QString &kind, int id, int meal)
{
    const int browse = kind == QLatin1String("exercise") ? BrowseExercises
                       : kind == QLatin1String("meal")   ? BrowseSavedMeals
                                                         : BrowseFoods;
    if (browse != _browsing)
        return false; // drags come from the browser as it is
    if (meal > 0)
        _meal->setCurrentIndex(_meal->findData(meal));
    select(id);
    return addSelectedFood();
}

void ItemBrowser::select(int id)
{
    const bool another = id != _selectedId;
    _selectedId = id;
    const float usual = updateServings();
    // Another food starts at one of its usual serving, or as many as the search began with: a
    // quantity typed for the last one (200 g of milk) would mean something else for this one
    // (200 bananas).
    if (another && usual > 0)
        _quantity->setValue(usual * _leadingAmount);
    else if (another && id >= 0 && _leadingMinutes)
        _quantity->setValue(*_leadingMinutes);
    updatePreview();
}

std::optional<int> ItemBrowser::servingId() const
{
    if (_serving->currentIndex() < 0)
        return std::nullopt;
    return _serving->currentData().toInt();
}

double ItemBrowser::quantity() const
{
    return _quantity->value();
}

int ItemBrowser::meal() const
{
    return _meal->currentData().toInt();
}

float ItemBrowser::updateServings()
{
    _serving->clear();
    if (_selectedId < 0 || _browsing != BrowseFoods || !_foods->contains(_selectedId))
        return 0;
    FoodDiaryItem item;
    item.changeFood(_selectedId);
    const QList<FoodServing> servings = servingsInOrder(item.getServings(), _metric);
    for (const FoodServing &serving : servings)
        _serving->addItem(serving.name, serving.id);
    // The serving the matches list counts in.
    const ServingChoice usual = preferredServing(servings);
    _serving->setCurrentIndex(std::max(0, _serving->findData(usual.servingId)));
    return usual.size;
}

void ItemBrowser::updatePreview()
{
    QString text;
    const UnitRegistry &units = UnitRegistry::instance();
    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    if (_selectedId >= 0 && _browsing == BrowseFoods && _serving->currentIndex() >= 0) {
        FoodDiaryItem item;
        item.changeFood(_selectedId);
        item.setServing(_serving->currentData().toInt());
        item.setSize(float(_quantity->value()));
        text = mainValuesText(item);
    } else if (_selectedId >= 0 && _browsing == BrowseExercises) {
        Exercise exercise;
        const auto weight = DiaryEdits::weightInForce(_userId, DateConversion::fromQDate(_date));
        if (weight && _exercises->exercise(_selectedId, &exercise))
            text =
                tr("%1 burned")
                    .arg(energy.formatValueWithUnit(double(exercise.scale) * *weight * _quantity->value()));
    }
    _preview->setText(text);
}

bool ItemBrowser::showNutrients()
{
    if (_selectedId < 0 || _browsing != BrowseFoods || _serving->currentIndex() < 0)
        return false;
    NutrientsDialog(_selectedId, _serving->currentData().toInt(), float(_quantity->value()), this).exec();
    return true;
}

bool ItemBrowser::addSelectedFood()
{
    const bool fromHere = isAncestorOf(QApplication::focusWidget());
    if (!addSelected())
        return false;
    if (fromHere) {
        _query->setFocus();
        _query->selectAll();
    }
    return true;
}

bool ItemBrowser::addSelected()
{
    const bool current = _selectedId >= 0;
    const QString day = DateConversion::fromQDate(_date);
    if (current && _userId >= 0 && _browsing == BrowseSavedMeals) {
        QList<FoodDiaryItem> added;
        if (!DiaryEdits::addSavedMeal(_selectedId, _userId, day, _meal->currentData().toInt(), &added) ||
            added.isEmpty())
            return false;
        _undo->record(
            DiaryCommand::AddsAndRemoves,
            tr("Add %1").arg(_matches->currentItem() ? _matches->currentItem()->text() : tr("Saved Meal")),
            {}, {added, {}});
        return true;
    }
    if (current && _userId >= 0 && _browsing == BrowseExercises) {
        Exercise exercise;
        if (!_exercises->exercise(_selectedId, &exercise))
            return false;
        // The energy burned follows the body weight in force that day.
        ExerciseDiaryItem entry;
        const DiaryEdits::Logged logged = DiaryEdits::logExercise(_userId, day, exercise.name, exercise.scale,
                                                                  float(_quantity->value()), &entry);
        if (logged == DiaryEdits::Logged::NoWeight) {
            QMessageBox::information(
                this, tr("Exercise"),
                tr("Record your weight in a check-in first: the energy an exercise burns "
                   "depends on it."));
            return false;
        }
        if (!diaryWritten(this, logged == DiaryEdits::Logged::Stored))
            return false;
        _undo->record(DiaryCommand::AddsAndRemoves, tr("Add %1").arg(entry.name), {}, {{}, {entry}});
        return true;
    }
    if (!current || _userId < 0 || _serving->currentIndex() < 0)
        return false;
    // What it would add, asked about first when it is a lot (150 cups of rice).
    FoodDiaryItem item;
    item.changeFood(_selectedId);
    item.setServing(_serving->currentData().toInt());
    item.setSize(float(_quantity->value()));
    if (const float energy = item.getNutrient(ENERGY); energy > kLargeEntryCalories) {
        const UnitDescriptor &unit = *UnitRegistry::instance().getUnit(UNIT_ENERGY);
        if (QMessageBox::question(this, tr("Add to Diary"),
                                  tr("%1 x %2 of %3 is %4. Add it?")
                                      .arg(number(_quantity->value()), _serving->currentText(),
                                           item.food_name, unit.formatValueWithUnit(energy))) !=
            QMessageBox::Yes)
            return false;
    }
    if (!diaryWritten(this, DiaryEdits::logFood(_userId, day, _meal->currentData().toInt(), _selectedId,
                                                item.serving_id, item.size, &item)))
        return false;
    _undo->record(DiaryCommand::AddsAndRemoves, tr("Add %1").arg(item.food_name), {}, {{item}, {}});
    return true;
}
