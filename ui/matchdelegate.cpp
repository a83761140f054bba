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
    // The name takes at least half; the energy keeps its number and loses the end of its serving.
    const int energyWidth = std::min(metrics.horizontalAdvance(energy), text.width() / 2);
    const bool selected = item.state & QStyle::State_Selected;
    const QPalette::ColorRole role = selected ? QPalette::HighlightedText : QPalette::Text;
    painter->save();
    painter->setFont(item.font);
    painter->setPen(item.palette.color(QPalette::Normal, role));
    const QRect nameRect = text.adjusted(0, 0, -energyWidth - metrics.averageCharWidth() * 2, 0);
    painter->drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(index.data(kNameRole).toString(), Qt::ElideRight, nameRect.width()));
    painter->setPen(item.palette.color(selected ? QPalette::Normal : QPalette::Disabled, role));
    painter->drawText(text, Qt::AlignRight | Qt::AlignVCenter,
                      metrics.elidedText(energy, Qt::ElideRight, energyWidth));
    painter->restore();
}

QSize MatchDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    return {1, QStyledItemDelegate::sizeHint(option, index).height()};
}
