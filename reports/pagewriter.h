#pragma once

// Lays blocks down the pages of a printer or PDF writer, top to bottom, in points. A block that
// does not fit what is left of a page starts the next one, so a meal or a table is never cut;
// only a block taller than a whole page is split. Each page carries a title and its number.

#include <QFont>
#include <QPainter>
#include <QRectF>
#include <QString>

class QPagedPaintDevice;

class PageWriter
{
public:
    PageWriter(QPagedPaintDevice *device, const QString &title);
    ~PageWriter();
    // A4 with 15 mm margins, for a PDF written without a print dialog.
    static void useA4(QPagedPaintDevice *device);

    bool isActive() const { return _painter.isActive(); }
    QPainter &painter() { return _painter; }
    // The width to lay out in, and where the next block goes.
    qreal width() const { return _area.width(); }
    qreal left() const { return _area.left(); }
    qreal y() const { return _y; }
    qreal pageHeight() const { return _area.height(); }
    int page() const { return _page; }

    // Whether a block of this height fits what is left of the page; making room for it, the
    // next page when it would not fit.
    bool fits(qreal height) const;
    void keepTogether(qreal height);
    void advance(qreal height) { _y += height; }
    void newPage();

    // One line of text in a box of the given width at the current line; the text is elided to
    // fit.
    void text(qreal x, qreal width, const QString &text, const QFont &font,
              Qt::Alignment alignment = Qt::AlignLeft);
    // Lines that fit the width (textlines.h), one under another from the current line.
    void lines(qreal x, qreal width, const QStringList &lines, const QFont &font);
    static qreal lineHeight(const QFont &font);
    static QFont font(qreal size, bool bold = false);

private:
    void decorate();

    QPainter _painter;
    QPagedPaintDevice *_device;
    QString _title;
    QRectF _area;
    qreal _y = 0;
    int _page = 1;
};
