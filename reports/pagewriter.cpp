#include "reports/pagewriter.h"

#include <QCoreApplication>
#include <QFontMetricsF>
#include <QPagedPaintDevice>

namespace {

constexpr qreal kHeaderHeight = 24; // points kept for the title line above the content
constexpr qreal kFooterHeight = 18;

} // namespace

PageWriter::PageWriter(QPagedPaintDevice *device, const QString &title)
    : _device(device)
    , _title(title)
{
    if (!_painter.begin(device))
        return;
    // Laid out in points whatever the device's resolution; fonts are sized in the same units.
    const qreal scaleX = device->logicalDpiX() / 72.0;
    const qreal scaleY = device->logicalDpiY() / 72.0;
    _painter.scale(scaleX, scaleY);
    const QRectF page(0, 0, device->width() / scaleX, device->height() / scaleY);
    _area = page.adjusted(0, kHeaderHeight, 0, -kFooterHeight);
    _y = _area.top();
    decorate();
}

void PageWriter::useA4(QPagedPaintDevice *device)
{
    device->setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait,
                                      QMarginsF(15, 15, 15, 15), QPageLayout::Millimeter));
}

PageWriter::~PageWriter()
{
    if (_painter.isActive())
        _painter.end();
}

QFont PageWriter::font(qreal size, bool bold)
{
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(qRound(size));
    font.setBold(bold);
    return font;
}

qreal PageWriter::lineHeight(const QFont &font)
{
    return QFontMetricsF(font).height() * 1.25;
}

bool PageWriter::fits(qreal height) const
{
    return _y + height <= _area.bottom() || _y <= _area.top();
}

void PageWriter::keepTogether(qreal height)
{
    if (!fits(height))
        newPage();
}

void PageWriter::newPage()
{
    _device->newPage();
    ++_page;
    _y = _area.top();
    decorate();
}

void PageWriter::text(qreal x, qreal width, const QString &text, const QFont &font, Qt::Alignment alignment)
{
    _painter.setFont(font);
    const QFontMetricsF metrics(font);
    const QString shown = metrics.elidedText(text, Qt::ElideRight, width);
    _painter.drawText(QRectF(x, _y, width, lineHeight(font)), int(alignment | Qt::AlignVCenter), shown);
}

void PageWriter::lines(qreal x, qreal width, const QStringList &lines, const QFont &font)
{
    _painter.setFont(font);
    const qreal height = lineHeight(font);
    for (qsizetype i = 0; i < lines.size(); ++i)
        _painter.drawText(QRectF(x, _y + qreal(i) * height, width, height),
                          int(Qt::AlignLeft | Qt::AlignVCenter), lines.at(i));
}

void PageWriter::decorate()
{
    const QFont small = font(8);
    _painter.save();
    _painter.setFont(small);
    _painter.setPen(QColor(0x55, 0x55, 0x55));
    const qreal top = _area.top() - kHeaderHeight;
    _painter.drawText(QRectF(_area.left(), top, _area.width(), kHeaderHeight - 8),
                      int(Qt::AlignLeft | Qt::AlignBottom), _title);
    _painter.drawLine(QPointF(_area.left(), top + kHeaderHeight - 5),
                      QPointF(_area.right(), top + kHeaderHeight - 5));
    _painter.drawText(QRectF(_area.left(), _area.bottom() + 4, _area.width(), kFooterHeight - 4),
                      int(Qt::AlignRight | Qt::AlignVCenter),
                      QCoreApplication::translate("PageWriter", "Page %1").arg(_page));
    _painter.restore();
}
