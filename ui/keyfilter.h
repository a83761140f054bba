#pragma once

// Keys that act on a widget: Enter and Delete on a list's current item, F-keys on the chosen
// one. The filter runs action and takes the key.

#include <QObject>

#include <functional>

class QAbstractItemView;
class QLineEdit;

class KeyFilter : public QObject
{
public:
    KeyFilter(QObject *parent, int key, std::function<void()> action,
              Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    int _key;
    Qt::KeyboardModifiers _modifiers;
    std::function<void()> _action;
};

// Shift+F10 opens a view's context menu at its current item, as the Menu key does.
void menuOnShiftF10(QAbstractItemView *view);

// A clear button with the brand's icon, shown while there is text. Qt's own loads every image
// plug-in to find its icon, which the first window pays for.
void addClearButton(QLineEdit *edit);
