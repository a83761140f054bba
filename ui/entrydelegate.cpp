#include "ui/entrydelegate.h"

#include "db/diarydb.h"
#include "db/diaryedits.h"
#include "ui/dayview.h"
#include "ui/quantityspinbox.h"

#include <QComboBox>
#include <QDoubleSpinBox>

#include <algorithm>

namespace {

bool isExercise(const QModelIndex &index)
{
    return index.data(DayModel::KindRole).toInt() == DayModel::ExerciseRow;
}

} // namespace

EntryDelegate::EntryDelegate(DayView *view)
    : QStyledItemDelegate(view)
    , _view(view)
{
}

QWidget *EntryDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &,
                                     const QModelIndex &index) const
{
    const QVariant entryId = index.data(DayModel::EntryIdRole);
    if (isExercise(index) && index.column() == DayModel::QuantityColumn) {
        auto *minutes = new QDoubleSpinBox(parent);
        minutes->setRange(1, 1440);
        minutes->setDecimals(0);
        minutes->setFrame(false);
        minutes->setAlignment(Qt::AlignRight);
        return minutes;
    }
    if (!entryId.isValid() || isExercise(index) ||
        (index.column() != DayModel::QuantityColumn && index.column() != DayModel::ServingColumn))
        return nullptr;
    if (index.column() == DayModel::QuantityColumn) {
        return QuantitySpinBox::inCell(parent);
    }
    FoodDiaryItem entry = DiaryDB().getFoodEntry(entryId.toInt());
    if (!DiaryEdits::servingsKnown(entry))
        return nullptr;
    auto *serving = new QComboBox(parent);
    for (const FoodServing &s : entry.getServings())
        serving->addItem(s.name, s.id);
    return serving;
}

void EntryDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    const int entryId = index.data(DayModel::EntryIdRole).toInt();
    if (isExercise(index)) {
        qobject_cast<QDoubleSpinBox *>(editor)->setValue(DiaryDB().getExerciseEntry(entryId).duration);
        return;
    }
    const FoodDiaryItem entry = DiaryDB().getFoodEntry(entryId);
    if (auto *quantity = qobject_cast<QDoubleSpinBox *>(editor))
        quantity->setValue(entry.size);
    else if (auto *serving = qobject_cast<QComboBox *>(editor))
        serving->setCurrentIndex(serving->findData(entry.serving_id));
}

void EntryDelegate::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                         const QModelIndex &index) const
{
    // A narrow column would squeeze the editor's arrows over its figure: it takes the room it
    // needs, over the name for a figure (which stands on the right) and over the columns to its
    // right for a serving.
    QRect rect = option.rect;
    const int width = std::max(rect.width(), editor->sizeHint().width());
    if (index.column() == DayModel::QuantityColumn)
        rect.setLeft(std::max(0, rect.right() + 1 - width));
    else
        rect.setWidth(width);
    editor->setGeometry(rect);
}

void EntryDelegate::setModelData(QWidget *editor, QAbstractItemModel *, const QModelIndex &index) const
{
    const int entryId = index.data(DayModel::EntryIdRole).toInt();
    if (isExercise(index)) {
        const auto minutes = float(qobject_cast<QDoubleSpinBox *>(editor)->value());
        QMetaObject::invokeMethod(
            _view, [view = _view, entryId, minutes] { view->editExerciseEntry(entryId, minutes); },
            Qt::QueuedConnection);
        return;
    }
    const FoodDiaryItem entry = DiaryDB().getFoodEntry(entryId);
    int servingId = entry.serving_id;
    float size = entry.size;
    if (const auto *quantity = dynamic_cast<const QuantitySpinBox *>(editor))
        size = float(quantity->valueKeeping(entry.size));
    else if (auto *serving = qobject_cast<QComboBox *>(editor))
        servingId = serving->currentData().toInt();
    if (servingId == entry.serving_id && size == entry.size)
        return;
    QMetaObject::invokeMethod(
        _view, [view = _view, entryId, servingId, size] { view->editEntry(entryId, servingId, size); },
        Qt::QueuedConnection);
}
