#pragma once

// Quantity and serving of a food entry, or an exercise's minutes, edited where they stand in the
// day's tree. The change goes to the diary once the editor has closed: the day is drawn again
// then, and the edited row with it.

#include <QStyledItemDelegate>

class DayView;

class EntryDelegate : public QStyledItemDelegate
{
public:
    explicit EntryDelegate(DayView *view);
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override;

private:
    DayView *_view;
};
