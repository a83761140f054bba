#pragma once

// Draws a match of the food browser: its name across the whole list, on a second line when it is
// longer and cut in the middle only beyond that (the food is named first and its preparation
// last, and both tell matches apart), and below it, in a quieter colour, what one of it brings
// ("95 cals per 1 medium"). The item's text keeps both ("name — energy") for copying and for
// screen readers.

#include <QStyledItemDelegate>

class MatchDelegate : public QStyledItemDelegate
{
public:
    static constexpr int kNameRole = Qt::UserRole + 10;
    static constexpr int kEnergyRole = Qt::UserRole + 11;

    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    // As wide as the list (names are broken or cut short rather than scrolled), two or three lines
    // high.
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    mutable struct
    {
        int listWidth = -1;
        QFont font;
        int oneLine = 0;
        int textWidth = 0;
    } _measured;
};
