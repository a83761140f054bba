#include "ui/matchdelegate.h"

#include "reports/textlines.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QPainter>

namespace {

// Where an item's text goes, across the given width.
QRect textRect(QStyleOptionViewItem item, const QRect &rect)
{
    item.rect = rect;
    const QWidget *widget = item.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    return style->subElementRect(QStyle::SE_ItemViewItemText, &item, widget).adjusted(2, 0, -2, 0);
}

} // namespace

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

    const QRect text = textRect(item, item.rect);
    const QFontMetrics metrics(item.font);
    // On a second line when longer than the list is wide, cut in its middle beyond that.
    const QStringList name =
        wrappedLines(index.data(kNameRole).toString(), item.font, text.width(), 2, Qt::ElideMiddle);
    const int lineHeight = metrics.height();
    int top = text.top() + (text.height() - lineHeight * int(name.size() + 1)) / 2;
    const bool selected = item.state & QStyle::State_Selected;
    const QPalette::ColorRole role = selected ? QPalette::HighlightedText : QPalette::Text;
    painter->save();
    painter->setFont(item.font);
    painter->setPen(item.palette.color(QPalette::Normal, role));
    for (const QString &line : name) {
        painter->drawText(QRect(text.left(), top, text.width(), lineHeight), Qt::AlignLeft | Qt::AlignVCenter,
                          line);
        top += lineHeight;
    }
    const int indent = metrics.averageCharWidth();
    painter->setPen(item.palette.color(selected ? QPalette::Normal : QPalette::Disabled, role));
    painter->drawText(QRect(text.left() + indent, top, text.width() - indent, lineHeight),
                      Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(energy, Qt::ElideRight, text.width() - indent));
    painter->restore();
}

QSize MatchDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    // Measured once for the list's width and font, as every row is alike but for its name.
    const auto *view = qobject_cast<const QAbstractItemView *>(option.widget);
    const int width = view ? view->viewport()->width() : 0;
    if (width != _measured.listWidth || option.font != _measured.font) {
        QStyleOptionViewItem item = option;
        initStyleOption(&item, index);
        _measured.listWidth = width;
        _measured.font = option.font;
        _measured.oneLine = QStyledItemDelegate::sizeHint(option, index).height();
        _measured.textWidth = textRect(item, QRect(0, 0, width, _measured.oneLine)).width();
    }
    const int lineHeight = option.fontMetrics.height();
    const bool twoLines =
        view && option.fontMetrics.horizontalAdvance(index.data(kNameRole).toString()) > _measured.textWidth;
    return {1, _measured.oneLine + (twoLines ? 2 : 1) * lineHeight};
}
