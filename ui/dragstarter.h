#pragma once

// Starts a drag of the item under the mouse once it has moved far enough. Items travel between
// lists as "binary/lmitem": the kind and the id, as text ("food 9003", "exercise 12150",
// "meal 4"); item gives that text for a point of the viewport, empty for none.

#include <QObject>
#include <QPoint>

#include <functional>

class DragStarter : public QObject
{
public:
    static inline const QString kItemMime = QStringLiteral("binary/lmitem");

    DragStarter(QWidget *viewport, std::function<QByteArray(const QPoint &)> item);
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *_viewport;
    std::function<QByteArray(const QPoint &)> _item;
    QPoint _start;
};
