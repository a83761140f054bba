#pragma once

// Draws a match of the food browser as its name, cut short when the list is narrow, with what
// one of it brings ("95 cals per 1 medium") at the right in a quieter colour. The item's text
// keeps both ("name — energy") for copying and for screen readers.

#include <QStyledItemDelegate>

class MatchDelegate : public QStyledItemDelegate
{
public:
    static constexpr int kNameRole = Qt::UserRole + 10;
    static constexpr int kEnergyRole = Qt::UserRole + 11;

    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    // As wide as the list: names are cut short rather than scrolled.
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};
