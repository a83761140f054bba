#include "ui/dragstarter.h"

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QWidget>

DragStarter::DragStarter(QWidget *viewport, std::function<QByteArray(const QPoint &)> item)
    : QObject(viewport)
    , _viewport(viewport)
    , _item(std::move(item))
{
    viewport->installEventFilter(this);
}

bool DragStarter::eventFilter(QObject *, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress)
        _start = static_cast<QMouseEvent *>(event)->position().toPoint();
    if (event->type() != QEvent::MouseMove)
        return false;
    const auto *move = static_cast<QMouseEvent *>(event);
    if (!(move->buttons() & Qt::LeftButton) ||
        (move->position().toPoint() - _start).manhattanLength() < QApplication::startDragDistance())
        return false;
    const QByteArray item = _item(_start);
    if (item.isEmpty())
        return false;
    auto *data = new QMimeData;
    data->setData(kItemMime, item);
    auto *drag = new QDrag(_viewport);
    drag->setMimeData(data);
    drag->exec(Qt::CopyAction);
    return true;
}
