#include "ui/deferredicons.h"

#include <QIconEngine>
#include <QPainter>
#include <QPointer>

namespace {

class DeferredIconEngine : public QIconEngine
{
public:
    DeferredIconEngine(const QStyle *style, QStyle::StandardPixmap which)
        : _style(const_cast<QStyle *>(style))
        , _which(which)
    {
    }

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override
    {
        icon().paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().pixmap(size, mode, state);
    }
    QPixmap scaledPixmap(const QSize &size, QIcon::Mode mode, QIcon::State state, qreal scale) override
    {
        return icon().pixmap(size, scale, mode, state);
    }
    QSize actualSize(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override
    {
        return icon().availableSizes(mode, state);
    }
    QString key() const override { return QStringLiteral("DeferredIconEngine"); }
    QIconEngine *clone() const override
    {
        auto *copy = new DeferredIconEngine(_style, _which);
        copy->_icon = _icon;
        copy->_read = _read;
        return copy;
    }

private:
    QIcon &icon()
    {
        if (!_read) {
            _read = true;
            if (const auto *proxy = qobject_cast<QProxyStyle *>(_style.data()))
                _icon = proxy->baseStyle()->standardIcon(_which);
        }
        return _icon;
    }

    QPointer<QStyle> _style;
    QStyle::StandardPixmap _which;
    QIcon _icon;
    bool _read = false;
};

} // namespace

QIcon DeferredIconStyle::standardIcon(StandardPixmap which, const QStyleOption *, const QWidget *) const
{
    return QIcon(new DeferredIconEngine(this, which));
}
