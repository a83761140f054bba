#include "ui/dayview.h"

#include "db/diarydb.h"
#include "db/diaryedits.h"
#include "db/savedmealdb.h"
#include "model/dateconversion.h"
#include "ui/diarycommands.h"
#include "ui/dragstarter.h"
#include "ui/entrydelegate.h"
#include "ui/keyfilter.h"
#include "ui/quantityspinbox.h"

#include <QComboBox>
#include <QDateEdit>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QDropEvent>
#include <QFormLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>

DayView::DayView(DiaryUndoStack *undo, QWidget *parent)
    : QTreeView(parent)
    , _model(new DayModel(this))
    , _undo(undo)
{
    setObjectName(QStringLiteral("entries"));
    setModel(_model);
    setRootIsDecorated(false);
    setUniformRowHeights(true);
    setAlternatingRowColors(true);
    setItemDelegate(new EntryDelegate(this));
    setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    installEventFilter(new KeyFilter(this, Qt::Key_Delete, [this] { deleteSelectedEntry(); }));
    // F2 and a double-click edit the quantity where it stands, or the cell clicked; Shift+F2 the
    // serving.
    installEventFilter(new KeyFilter(this, Qt::Key_F2, [this] {
        const bool serving = currentIndex().column() == DayModel::ServingColumn;
        editCell(
            currentIndex().siblingAtColumn(serving ? DayModel::ServingColumn : DayModel::QuantityColumn));
    }));
    installEventFilter(new KeyFilter(
        this, Qt::Key_F2, [this] { editCell(currentIndex().siblingAtColumn(DayModel::ServingColumn)); },
        Qt::ShiftModifier));
    connect(this, &QTreeView::doubleClicked, this, [this](const QModelIndex &index) {
        const bool serving = index.column() == DayModel::ServingColumn;
        editCell(index.siblingAtColumn(serving ? DayModel::ServingColumn : DayModel::QuantityColumn));
    });
    menuOnShiftF10(this);
    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QTreeView::customContextMenuRequested, this, &DayView::contextMenu);
    connect(this, &QTreeView::collapsed, this,
            [this](const QModelIndex &group) { _closed.insert(groupKey(group)); });
    connect(this, &QTreeView::expanded, this,
            [this](const QModelIndex &group) { _closed.remove(groupKey(group)); });
    viewport()->setAcceptDrops(true);
}

int DayView::groupKey(const QModelIndex &group)
{
    return group.data(DayModel::KindRole).toInt() == DayModel::ExerciseGroupRow
               ? int(EXERCISE)
               : group.data(DayModel::MealRole).toInt();
}

void DayView::setDay(int userId, const QDate &date, const QList<int> &columns)
{
    _closed.clear();
    _model->setDay(userId, date, columns);
    layOutColumns();
    reopen();
}

void DayView::setDate(const QDate &date)
{
    _model->setDate(date);
    reopen();
}

void DayView::refresh()
{
    const QModelIndex current = currentIndex();
    const QVariant kind = current.data(DayModel::KindRole);
    const QVariant entry = current.data(DayModel::EntryIdRole);
    const int group =
        current.isValid() ? groupKey(current.parent().isValid() ? current.parent() : current) : -1;
    _model->reload();
    reopen();
    if (entry.isValid())
        setCurrentIndex(_model->entryIndex(DayModel::Kind(kind.toInt()), entry.toInt(), current.column()));
    else if (kind.isValid())
        setCurrentIndex(_model->mealIndex(group).siblingAtColumn(current.column()));
}

void DayView::reopen()
{
    for (int g = 0; g < _model->rowCount(); ++g) {
        const QModelIndex group = _model->index(g, 0);
        setExpanded(group, !_closed.contains(groupKey(group)));
    }
}

void DayView::editCell(const QModelIndex &cell)
{
    // Meal rows have nothing to edit.
    if (cell.flags() & Qt::ItemIsEditable)
        edit(cell);
}

void DayView::layOutColumns()
{
    // Set once for the columns: the name takes the room, the others keep their widths as the
    // day's figures change, and can be widened by hand.
    QHeaderView *head = header();
    head->setStretchLastSection(false);
    head->setSectionResizeMode(QHeaderView::Interactive);
    head->setSectionResizeMode(DayModel::NameColumn, QHeaderView::Stretch);
    const QFontMetrics metrics(font());
    const int margins = 2 * (style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, this) + 1) +
                        metrics.averageCharWidth();
    for (int c = DayModel::QuantityColumn; c < _model->columnCount(); ++c) {
        const int text = c == DayModel::QuantityColumn  ? metrics.horizontalAdvance(QStringLiteral("888.88"))
                         : c == DayModel::ServingColumn ? metrics.averageCharWidth() * 20
                                                        : metrics.horizontalAdvance(QStringLiteral("88888"));
        head->resizeSection(c, std::max(head->sectionSizeHint(c), text + margins));
    }
}

bool DayView::currentEntry(DayModel::Kind *kind, int *id) const
{
    const QModelIndex current = currentIndex();
    const QVariant entry = current.data(DayModel::EntryIdRole);
    if (!entry.isValid())
        return false;
    *kind = DayModel::Kind(current.data(DayModel::KindRole).toInt());
    *id = entry.toInt();
    return true;
}

void DayView::deleteSelectedEntry()
{
    DayModel::Kind kind;
    int id = -1;
    if (!currentEntry(&kind, &id))
        return;
    const bool exercise = kind == DayModel::ExerciseRow;
    DiaryEdits::Entries removed;
    const DiaryEdits::Edited done = DiaryEdits::removeEntry(
        _model->userId(), exercise ? DiaryEdits::Kind::Exercise : DiaryEdits::Kind::Food, id, &removed);
    if (done == DiaryEdits::Edited::Nothing || !diaryWritten(this, done == DiaryEdits::Edited::Stored))
        return;
    // Undone by a copy of the entry: the deleted row stays for the devices to learn of it.
    const QString name =
        exercise ? removed.exercises.constFirst().name : removed.foods.constFirst().food_name;
    _undo->record(DiaryCommand::AddsAndRemoves, tr("Delete %1").arg(name), removed, {});
}

bool DayView::editSelectedEntry(int servingId, float quantity)
{
    DayModel::Kind kind;
    int id = -1;
    return currentEntry(&kind, &id) && kind == DayModel::FoodRow && editEntry(id, servingId, quantity);
}

bool DayView::editEntry(int entryId, int servingId, float quantity)
{
    DiaryEdits::Change change;
    const DiaryEdits::Edited done =
        DiaryEdits::changeFood(_model->userId(), entryId, servingId, quantity, &change);
    if (done == DiaryEdits::Edited::Nothing || !diaryWritten(this, done == DiaryEdits::Edited::Stored))
        return false;
    _undo->record(DiaryCommand::Updates, tr("Change %1").arg(change.after.foods.constFirst().food_name),
                  change.before, change.after);
    return true;
}

bool DayView::editExerciseEntry(int entryId, float minutes)
{
    DiaryEdits::Change change;
    const DiaryEdits::Edited done = DiaryEdits::changeMinutes(_model->userId(), entryId, minutes, &change);
    if (done == DiaryEdits::Edited::Nothing || !diaryWritten(this, done == DiaryEdits::Edited::Stored))
        return false;
    _undo->record(DiaryCommand::Updates, tr("Change %1").arg(change.after.exercises.constFirst().name),
                  change.before, change.after);
    return true;
}

bool DayView::moveSelectedEntry(int meal)
{
    DayModel::Kind kind;
    int id = -1;
    if (!currentEntry(&kind, &id) || kind != DayModel::FoodRow)
        return false;
    DiaryEdits::Change change;
    const DiaryEdits::Edited done = DiaryEdits::moveFood(_model->userId(), id, meal, &change);
    if (done == DiaryEdits::Edited::Nothing || !diaryWritten(this, done == DiaryEdits::Edited::Stored))
        return false;
    _undo->record(DiaryCommand::Updates, tr("Move %1").arg(change.after.foods.constFirst().food_name),
                  change.before, change.after);
    return true;
}

int DayView::copySelection(const QDate &target, int meal)
{
    const QModelIndex current = currentIndex().siblingAtColumn(DayModel::NameColumn);
    if (!current.isValid() || _model->userId() < 0 || !target.isValid())
        return 0;
    QList<int> ids;
    const int kind = current.data(DayModel::KindRole).toInt();
    if (kind == DayModel::FoodRow) {
        ids.append(current.data(DayModel::EntryIdRole).toInt());
    } else if (kind == DayModel::MealRow) {
        for (int r = 0; r < _model->rowCount(current); ++r)
            ids.append(_model->index(r, 0, current).data(DayModel::EntryIdRole).toInt());
    }
    QList<FoodDiaryItem> copied;
    if (!diaryWritten(this, DiaryEdits::copyFoods(ids, DateConversion::fromQDate(target), meal, &copied)))
        return 0;
    _undo->record(DiaryCommand::AddsAndRemoves, tr("Copy %n Entries", nullptr, int(copied.size())), {},
                  {copied, {}});
    return int(copied.size());
}

int DayView::saveMeal(int meal, const QString &name)
{
    const int userId = _model->userId();
    if (userId < 0 || name.trimmed().isEmpty())
        return -1;
    SavedMeal saved;
    saved.user_id = userId;
    saved.name = name.trimmed();
    const QList<int> group = [&] {
        for (const QList<int> &g : mealGroups(_model->preferences().snackMode)) {
            if (g.contains(meal))
                return g;
        }
        return QList<int>{meal};
    }();
    for (const FoodDiaryItem &food :
         DiaryDB().getDay(userId, DateConversion::fromQDate(_model->date())).foods) {
        if (group.contains(food.meal) && food.status == STATUS_LIVE)
            saved.foods.append(food);
    }
    if (saved.foods.isEmpty())
        return -1;
    const int id = SavedMealDB::createMeal(saved);
    emit mealSaved();
    return id;
}

void DayView::contextMenu(const QPoint &at)
{
    const QModelIndex row = indexAt(at).siblingAtColumn(DayModel::NameColumn);
    const QPoint where = viewport()->mapToGlobal(at);
    if (const QVariant meal = row.data(DayModel::MealRole); meal.isValid()) {
        QMenu menu(this);
        menu.addAction(tr("&Copy Meal To..."), this, [this, row] {
            setCurrentIndex(row);
            copySelectionInDialog();
        });
        menu.addAction(tr("&Save as a Meal..."), this, [this, meal] {
            const QString name = QInputDialog::getText(this, tr("Save Meal"), tr("&Name of the meal:"));
            if (!name.trimmed().isEmpty() && saveMeal(meal.toInt(), name) < 0)
                QMessageBox::information(this, tr("Save Meal"), tr("This meal has no foods to save."));
        });
        menu.exec(where);
        return;
    }
    const int kind = row.data(DayModel::KindRole).toInt();
    if (!row.data(DayModel::EntryIdRole).isValid())
        return;
    QMenu menu(this);
    if (kind == DayModel::ExerciseRow) {
        menu.addAction(tr("&Change Minutes"), this,
                       [this, row] { editCell(row.siblingAtColumn(DayModel::QuantityColumn)); });
    } else {
        menu.addAction(tr("&Edit..."), this, &DayView::editSelectedEntryInDialog);
        menu.addAction(tr("&Copy To..."), this, &DayView::copySelectionInDialog);
        QMenu *move = menu.addMenu(tr("&Move to"));
        for (const auto &[meal, name] : DayModel::meals(_model->preferences().snackMode))
            move->addAction(name, this, [this, meal] { moveSelectedEntry(meal); });
    }
    menu.addAction(tr("&Delete"), this, &DayView::deleteSelectedEntry);
    menu.exec(where);
}

void DayView::copySelectionInDialog()
{
    QDialog dialog(this);
    dialog.setWindowTitle(tr("Copy To"));
    auto *day = new QDateEdit(_model->date().addDays(1), &dialog);
    day->setCalendarPopup(true);
    day->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    auto *meal = new QComboBox(&dialog);
    meal->addItem(tr("The same meal"), 0);
    for (const auto &[code, name] : DayModel::meals(_model->preferences().snackMode))
        meal->addItem(name, code);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    auto *form = new QFormLayout(&dialog);
    form->addRow(tr("&Day:"), day);
    form->addRow(tr("&Meal:"), meal);
    form->addRow(buttons);
    if (dialog.exec() == QDialog::Accepted)
        copySelection(day->date(), meal->currentData().toInt());
}

void DayView::editSelectedEntryInDialog()
{
    DayModel::Kind kind;
    int id = -1;
    if (!currentEntry(&kind, &id) || kind != DayModel::FoodRow)
        return;
    FoodDiaryItem entry = DiaryDB().getFoodEntry(id);
    QDialog dialog(this);
    dialog.setWindowTitle(entry.food_name);
    auto *serving = new QComboBox(&dialog);
    if (DiaryEdits::servingsKnown(entry)) {
        for (const FoodServing &s : entry.getServings())
            serving->addItem(s.name, s.id);
        serving->setCurrentIndex(serving->findData(entry.serving_id));
    } else {
        serving->addItem(entry.serv_name, entry.serving_id);
        serving->setEnabled(false);
    }
    auto *quantity = new QuantitySpinBox(&dialog);
    quantity->setValue(entry.size);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    auto *form = new QFormLayout(&dialog);
    form->addRow(tr("&Serving:"), serving);
    form->addRow(tr("&Quantity:"), quantity);
    form->addRow(buttons);
    if (dialog.exec() == QDialog::Accepted)
        editSelectedEntry(serving->currentData().toInt(), float(quantity->valueKeeping(entry.size)));
}

void DayView::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasFormat(DragStarter::kItemMime))
        event->acceptProposedAction();
    else
        QTreeView::dragEnterEvent(event);
}

void DayView::dragMoveEvent(QDragMoveEvent *event)
{
    if (event->mimeData()->hasFormat(DragStarter::kItemMime))
        event->acceptProposedAction();
    else
        QTreeView::dragMoveEvent(event);
}

void DayView::dropEvent(QDropEvent *event)
{
    const QList<QByteArray> item = event->mimeData()->data(DragStarter::kItemMime).split(' ');
    if (item.size() != 2) {
        QTreeView::dropEvent(event);
        return;
    }
    QModelIndex target = indexAt(event->position().toPoint());
    while (target.parent().isValid())
        target = target.parent();
    emit itemDropped(QString::fromLatin1(item.at(0)), item.at(1).toInt(),
                     target.data(DayModel::MealRole).toInt());
    event->acceptProposedAction();
}
