#pragma once

// The shown day of the diary as rows: each meal (snacks grouped as the profile chose) with its
// totals, its food entries below it, then the exercise with what each burned. Columns: name,
// quantity, serving, then the profile's nutrients. It reads the diary and never writes it;
// reload() reads again after a change. Texts are formatted once per read, not per paint.

#include "reports/daytable.h"

#include <QAbstractItemModel>
#include <QDate>
#include <QFont>

class DayModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column {
        NameColumn = DayTable::NameColumn,
        QuantityColumn = DayTable::QuantityColumn,
        ServingColumn = DayTable::ServingColumn,
        FirstNutrientColumn = DayTable::FirstNutrientColumn
    };
    enum Kind {
        MealRow = DayTable::MealRow,
        ExerciseGroupRow = DayTable::ExerciseGroupRow,
        FoodRow = DayTable::FoodRow,
        ExerciseRow = DayTable::ExerciseRow
    };
    enum Role {
        KindRole = Qt::UserRole + 10, // a Kind
        EntryIdRole,                  // a food or exercise entry's id
        MealRole,                     // a meal row's meal
    };

    explicit DayModel(QObject *parent = nullptr);

    // The six meals with the names the profile gives them.
    static QList<QPair<int, QString>> meals(int snackMode);

    // A profile's day, with the nutrient columns the profile chose; another day of it; the same
    // day read again.
    void setDay(int userId, const QDate &date, const QList<int> &columns);
    void setDate(const QDate &date);
    void reload();
    int userId() const { return _table.userId; }
    QDate date() const { return _table.date; }
    QList<int> columns() const { return _table.columns; }

    // What the last read found: the day's live entries, the targets in force, the preferences
    // that group and judge them.
    const DiaryDay &diary() const { return _table.diary; }
    const Targets &targets() const { return _table.targets; }
    const ProfilePreferences &preferences() const { return _table.preferences; }
    const DayTable &table() const { return _table; }

    // The row of an entry, or of the group holding a meal; invalid when none.
    QModelIndex entryIndex(Kind kind, int id, int column = NameColumn) const;
    QModelIndex mealIndex(int meal) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    const DayTable::Row *rowAt(const QModelIndex &index) const;

    DayTable _table;
    QFont _bold;
};
