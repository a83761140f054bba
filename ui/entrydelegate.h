#pragma once

// Quantity and serving of a food entry, or an exercise's minutes, edited where they stand in the
// day's tree. The change goes to the diary once the editor has closed: the day is drawn again
// then, and the edited row with it.

#include <QStyledItemDelegate>

class DiaryView;

class EntryDelegate : public QStyledItemDelegate
{
public:
    static constexpr int kExerciseRole = Qt::UserRole + 3; // an exercise entry's id, in the day's tree

    explicit EntryDelegate(DiaryView *view);
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override;

private:
    DiaryView *_view;
};
