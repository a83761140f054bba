#include "ui/daymodel.h"

namespace {

constexpr quintptr kTopLevel = 0; // the internal id of a group's row; an entry's is its group's + 1

} // namespace

DayModel::DayModel(QObject *parent)
    : QAbstractItemModel(parent)
{
    _bold.setBold(true);
}

QList<QPair<int, QString>> DayModel::meals(int snackMode)
{
    QList<QPair<int, QString>> meals;
    for (const int meal : {BREAKFAST, SNACK_1, LUNCH, SNACK_2, DINNER, SNACK_3})
        meals.append({meal, mealName(meal, snackMode)});
    return meals;
}

void DayModel::setDay(int userId, const QDate &date, const QList<int> &columns)
{
    beginResetModel();
    _table = DayTable::read(userId, date, columns);
    endResetModel();
}

void DayModel::setDate(const QDate &date)
{
    beginResetModel();
    _table = DayTable::read(_table.userId, date, _table.columns);
    endResetModel();
}

void DayModel::reload()
{
    setDate(_table.date);
}

QModelIndex DayModel::entryIndex(Kind kind, int id, int column) const
{
    for (qsizetype g = 0; g < _table.groups.size(); ++g) {
        const QList<DayTable::Row> &entries = _table.groups[g].entries;
        for (qsizetype r = 0; r < entries.size(); ++r) {
            if (int(entries[r].kind) == int(kind) && entries[r].id == id)
                return createIndex(int(r), column, quintptr(g + 1));
        }
    }
    return {};
}

QModelIndex DayModel::mealIndex(int meal) const
{
    for (qsizetype g = 0; g < _table.groups.size(); ++g) {
        if (_table.groups[g].meals.contains(meal))
            return createIndex(int(g), NameColumn, kTopLevel);
    }
    return {};
}

const DayTable::Row *DayModel::rowAt(const QModelIndex &index) const
{
    if (!index.isValid())
        return nullptr;
    if (index.internalId() == kTopLevel)
        return &_table.groups[index.row()].row;
    return &_table.groups[qsizetype(index.internalId() - 1)].entries[index.row()];
}

QModelIndex DayModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return {};
    return createIndex(row, column, parent.isValid() ? quintptr(parent.row() + 1) : kTopLevel);
}

QModelIndex DayModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == kTopLevel)
        return {};
    return createIndex(int(child.internalId() - 1), NameColumn, kTopLevel);
}

int DayModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(_table.groups.size());
    if (parent.internalId() != kTopLevel || parent.column() != NameColumn)
        return 0;
    return int(_table.groups[parent.row()].entries.size());
}

int DayModel::columnCount(const QModelIndex &) const
{
    return int(_table.headers.size());
}

QVariant DayModel::data(const QModelIndex &index, int role) const
{
    const DayTable::Row *row = rowAt(index);
    if (!row)
        return {};
    const bool entry = row->kind == DayTable::FoodRow || row->kind == DayTable::ExerciseRow;
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return row->texts.value(index.column());
    case Qt::TextAlignmentRole:
        // Numbers line up on the right.
        if (index.column() == QuantityColumn || index.column() >= FirstNutrientColumn)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    case Qt::ToolTipRole:
        // A name or serving cut short shows whole.
        if (index.column() == NameColumn)
            return row->toolTip;
        if (index.column() == ServingColumn && row->kind == DayTable::FoodRow)
            return row->texts.value(ServingColumn);
        return {};
    case Qt::FontRole:
        return !entry && index.column() == NameColumn ? QVariant(_bold) : QVariant();
    case KindRole:
        return int(row->kind);
    case EntryIdRole:
        return entry ? QVariant(row->id) : QVariant();
    case MealRole:
        return row->kind == DayTable::MealRow ? QVariant(row->id) : QVariant();
    default:
        return {};
    }
}

QVariant DayModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::DisplayRole)
        return _table.headers.value(section);
    // Over the figures, on their side.
    if (role == Qt::TextAlignmentRole && (section == QuantityColumn || section >= FirstNutrientColumn))
        return int(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

Qt::ItemFlags DayModel::flags(const QModelIndex &index) const
{
    const DayTable::Row *row = rowAt(index);
    if (!row)
        return Qt::NoItemFlags;
    const Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    return row->kind == DayTable::FoodRow || row->kind == DayTable::ExerciseRow ? flags | Qt::ItemIsEditable
                                                                                : flags;
}
