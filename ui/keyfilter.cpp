#include "ui/keyfilter.h"

#include "brand/brandengine.h"

#include <QAbstractItemView>
#include <QAction>
#include <QIcon>
#include <QKeyEvent>
#include <QLineEdit>

KeyFilter::KeyFilter(QObject *parent, int key, std::function<void()> action, Qt::KeyboardModifiers modifiers)
    : QObject(parent)
    , _key(key)
    , _modifiers(modifiers)
    , _action(std::move(action))
{
}

bool KeyFilter::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const auto *press = static_cast<QKeyEvent *>(event);
        const int key = press->key();
        // Enter on the keypad counts as Return.
        if ((key == _key || (_key == Qt::Key_Return && key == Qt::Key_Enter)) &&
            (press->modifiers() & ~Qt::KeypadModifier) == _modifiers) {
            _action();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

void menuOnShiftF10(QAbstractItemView *view)
{
    view->installEventFilter(new KeyFilter(
        view, Qt::Key_F10,
        [view] {
            const QRect current = view->visualRect(view->currentIndex());
            emit view->customContextMenuRequested(current.isValid() ? current.center() : QPoint(0, 0));
        },
        Qt::ShiftModifier));
}

void addClearButton(QLineEdit *edit)
{
    QAction *clear = edit->addAction(
        QIcon(BrandEngine::instance().getPixmap(QStringLiteral("graphics.icon.searchclear_small"))),
        QLineEdit::TrailingPosition);
    clear->setObjectName(QStringLiteral("clear"));
    clear->setToolTip(QObject::tr("Clear"));
    clear->setVisible(false);
    QObject::connect(clear, &QAction::triggered, edit, [edit] {
        edit->clear();
        edit->setFocus();
    });
    QObject::connect(edit, &QLineEdit::textChanged, clear,
                     [clear](const QString &text) { clear->setVisible(!text.isEmpty()); });
}
