#include "ui/daymodel.h"

#include "db/diarydb.h"
#include "model/dateconversion.h"
#include "model/unitdescriptor.h"

#include <QLocale>

namespace {

constexpr quintptr kTopLevel = 0; // the internal id of a group's row; an entry's is its group's + 1

QString number(double value)
{
    return QLocale::c().toString(value, 'g', 6);
}

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
    _userId = userId;
    _date = date;
    _columns = columns;
    _headers = QStringList{tr("Food"), tr("Quantity"), tr("Serving")};
    for (const int type : columns)
        _headers.append(UnitRegistry::instance().getUnitForNutrient(type)->getName());
    read();
    endResetModel();
}

void DayModel::setDate(const QDate &date)
{
    _date = date;
    reload();
}

void DayModel::reload()
{
    beginResetModel();
    read();
    endResetModel();
}

void DayModel::read()
{
    _groups.clear();
    _diary = {};
    if (_userId < 0)
        return;
    const QString day = DateConversion::fromQDate(_date);
    _diary = DiaryDB().getDay(_userId, day);
    _diary.foods.removeIf([](const FoodDiaryItem &f) { return f.status == STATUS_DELETED; });
    _diary.exercises.removeIf([](const ExerciseDiaryItem &e) { return e.status == STATUS_DELETED; });
    _targets = UserDB::getTargets(_userId, day);
    _preferences = ProfilePreferences::load(_userId);
    const UnitRegistry &units = UnitRegistry::instance();
    const int snackMode = _preferences.snackMode;
    const qsizetype width = FirstNutrientColumn + _columns.size();
    const auto blank = [width](const QString &name) {
        QStringList texts(width);
        texts[NameColumn] = name;
        return texts;
    };
    for (const QList<int> &meals : mealGroups(snackMode)) {
        const QString name = mealName(meals.constLast(), snackMode);
        Group group{{MealRow, meals.constLast(), blank(name), name}, meals, {}};
        for (const FoodDiaryItem &food : std::as_const(_diary.foods)) {
            if (!meals.contains(food.meal))
                continue;
            QStringList texts = {food.food_name, number(food.size), food.serv_name};
            for (const int type : std::as_const(_columns))
                texts.append(units.getUnitForNutrient(type)->formatValue(food.getNutrient(type)));
            group.entries.append({FoodRow, food.food_id, texts, food.food_name});
        }
        for (qsizetype c = 0; c < _columns.size() && !group.entries.isEmpty(); ++c) {
            float sum = 0;
            for (const FoodDiaryItem &food : std::as_const(_diary.foods)) {
                if (meals.contains(food.meal) && food.getNutrient(_columns[c]) > 0)
                    sum += food.getNutrient(_columns[c]);
            }
            group.row.texts[FirstNutrientColumn + c] =
                units.getUnitForNutrient(_columns[c])->formatValue(sum);
        }
        _groups.append(group);
    }
    // Exercise: what each burned, and the day's total burned on the group's row.
    if (_diary.exercises.isEmpty())
        return;
    const QString name = mealName(EXERCISE, snackMode);
    Group group{{ExerciseGroupRow, -1, blank(name), name}, {EXERCISE}, {}};
    const qsizetype energyColumn = _columns.indexOf(ENERGY);
    const UnitDescriptor &energy = *units.getUnit(UNIT_ENERGY);
    for (const ExerciseDiaryItem &e : std::as_const(_diary.exercises)) {
        QStringList texts = blank(e.name);
        texts[QuantityColumn] = number(e.duration);
        texts[ServingColumn] = tr("minutes");
        if (energyColumn >= 0)
            texts[FirstNutrientColumn + energyColumn] = energy.formatValue(e.energy());
        group.entries.append({ExerciseRow, e.ex_id, texts,
                              tr("%1: %2 burned").arg(e.name, energy.formatValueWithUnit(e.energy()))});
    }
    if (energyColumn >= 0)
        group.row.texts[FirstNutrientColumn + energyColumn] =
            energy.formatValue(_diary.total(EXERCISE, ENERGY));
    _groups.append(group);
}

QModelIndex DayModel::entryIndex(Kind kind, int id, int column) const
{
    for (qsizetype g = 0; g < _groups.size(); ++g) {
        const QList<Row> &entries = _groups[g].entries;
        for (qsizetype r = 0; r < entries.size(); ++r) {
            if (entries[r].kind == kind && entries[r].id == id)
                return createIndex(int(r), column, quintptr(g + 1));
        }
    }
    return {};
}

QModelIndex DayModel::mealIndex(int meal) const
{
    for (qsizetype g = 0; g < _groups.size(); ++g) {
        if (_groups[g].meals.contains(meal))
            return createIndex(int(g), NameColumn, kTopLevel);
    }
    return {};
}

const DayModel::Row *DayModel::rowAt(const QModelIndex &index) const
{
    if (!index.isValid())
        return nullptr;
    if (index.internalId() == kTopLevel)
        return &_groups[index.row()].row;
    return &_groups[qsizetype(index.internalId() - 1)].entries[index.row()];
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
        return int(_groups.size());
    if (parent.internalId() != kTopLevel || parent.column() != NameColumn)
        return 0;
    return int(_groups[parent.row()].entries.size());
}

int DayModel::columnCount(const QModelIndex &) const
{
    return int(_headers.size());
}

QVariant DayModel::data(const QModelIndex &index, int role) const
{
    const Row *row = rowAt(index);
    if (!row)
        return {};
    const bool entry = row->kind == FoodRow || row->kind == ExerciseRow;
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
        if (index.column() == ServingColumn && row->kind == FoodRow)
            return row->texts.value(ServingColumn);
        return {};
    case Qt::FontRole:
        return !entry && index.column() == NameColumn ? QVariant(_bold) : QVariant();
    case KindRole:
        return row->kind;
    case EntryIdRole:
        return entry ? QVariant(row->id) : QVariant();
    case MealRole:
        return row->kind == MealRow ? QVariant(row->id) : QVariant();
    default:
        return {};
    }
}

QVariant DayModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::DisplayRole)
        return _headers.value(section);
    if (role == Qt::TextAlignmentRole && section >= FirstNutrientColumn)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

Qt::ItemFlags DayModel::flags(const QModelIndex &index) const
{
    const Row *row = rowAt(index);
    if (!row)
        return Qt::NoItemFlags;
    const Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    return row->kind == FoodRow || row->kind == ExerciseRow ? flags | Qt::ItemIsEditable : flags;
}
