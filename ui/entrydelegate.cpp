#include "ui/entrydelegate.h"

#include "db/diarydb.h"
#include "ui/diaryview.h"

#include <QComboBox>
#include <QDoubleSpinBox>

EntryDelegate::EntryDelegate(DiaryView *view)
    : QStyledItemDelegate(view)
    , _view(view)
{
}

QWidget *EntryDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &,
                                     const QModelIndex &index) const
{
    if (index.siblingAtColumn(0).data(kExerciseRole).isValid() && index.column() == 1) {
        auto *minutes = new QDoubleSpinBox(parent);
        minutes->setRange(1, 1440);
        minutes->setDecimals(0);
        minutes->setFrame(false);
        return minutes;
    }
    const QVariant entryId = index.siblingAtColumn(0).data(Qt::UserRole);
    if (!entryId.isValid() || (index.column() != 1 && index.column() != 2))
        return nullptr;
    if (index.column() == 1) {
        auto *quantity = new QDoubleSpinBox(parent);
        quantity->setRange(0.01, 10000);
        quantity->setFrame(false);
        return quantity;
    }
    FoodDiaryItem entry = DiaryDB().getFoodEntry(entryId.toInt());
    if (!_view->servingsKnown(entry))
        return nullptr;
    auto *serving = new QComboBox(parent);
    for (const FoodServing &s : entry.getServings())
        serving->addItem(s.name, s.id);
    return serving;
}

void EntryDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    if (const QVariant exercise = index.siblingAtColumn(0).data(kExerciseRole); exercise.isValid()) {
        qobject_cast<QDoubleSpinBox *>(editor)->setValue(
            DiaryDB().getExerciseEntry(exercise.toInt()).duration);
        return;
    }
    const FoodDiaryItem entry = DiaryDB().getFoodEntry(index.siblingAtColumn(0).data(Qt::UserRole).toInt());
    if (auto *quantity = qobject_cast<QDoubleSpinBox *>(editor))
        quantity->setValue(entry.size);
    else if (auto *serving = qobject_cast<QComboBox *>(editor))
        serving->setCurrentIndex(serving->findData(entry.serving_id));
}

void EntryDelegate::setModelData(QWidget *editor, QAbstractItemModel *, const QModelIndex &index) const
{
    if (const QVariant exercise = index.siblingAtColumn(0).data(kExerciseRole); exercise.isValid()) {
        const auto minutes = float(qobject_cast<QDoubleSpinBox *>(editor)->value());
        QMetaObject::invokeMethod(
            _view, [view = _view, id = exercise.toInt(), minutes] { view->editExerciseEntry(id, minutes); },
            Qt::QueuedConnection);
        return;
    }
    const int entryId = index.siblingAtColumn(0).data(Qt::UserRole).toInt();
    const FoodDiaryItem entry = DiaryDB().getFoodEntry(entryId);
    int servingId = entry.serving_id;
    float size = entry.size;
    if (auto *quantity = qobject_cast<QDoubleSpinBox *>(editor))
        size = float(quantity->value());
    else if (auto *serving = qobject_cast<QComboBox *>(editor))
        servingId = serving->currentData().toInt();
    if (servingId == entry.serving_id && size == entry.size)
        return;
    QMetaObject::invokeMethod(
        _view, [view = _view, entryId, servingId, size] { view->editEntry(entryId, servingId, size); },
        Qt::QueuedConnection);
}
