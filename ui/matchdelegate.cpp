#include "ui/matchdelegate.h"

#include <QApplication>
#include <QPainter>

void MatchDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const
{
    const QString energy = index.data(kEnergyRole).toString();
    if (energy.isEmpty()) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    item.text.clear();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &item, painter, widget);

    const QRect text =
        style->subElementRect(QStyle::SE_ItemViewItemText, &item, widget).adjusted(2, 0, -2, 0);
    const QFontMetrics metrics(item.font);
    const int middle = text.top() + text.height() / 2;
    const QRect nameRect(text.left(), middle - metrics.height(), text.width(), metrics.height());
    const QRect energyRect(text.left() + metrics.averageCharWidth(), middle,
                           text.width() - metrics.averageCharWidth(), metrics.height());
    const bool selected = item.state & QStyle::State_Selected;
    const QPalette::ColorRole role = selected ? QPalette::HighlightedText : QPalette::Text;
    painter->save();
    painter->setFont(item.font);
    painter->setPen(item.palette.color(QPalette::Normal, role));
    painter->drawText(
        nameRect, Qt::AlignLeft | Qt::AlignVCenter,
        metrics.elidedText(index.data(kNameRole).toString(), Qt::ElideMiddle, nameRect.width()));
    painter->setPen(item.palette.color(selected ? QPalette::Normal : QPalette::Disabled, role));
    painter->drawText(energyRect, Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(energy, Qt::ElideRight, energyRect.width()));
    painter->restore();
}

QSize MatchDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const int oneLine = QStyledItemDelegate::sizeHint(option, index).height();
    return {1, oneLine + option.fontMetrics.height()};
}
