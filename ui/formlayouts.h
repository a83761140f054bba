#pragma once

// Forms whose figures (spin boxes) stay compact beside the fields that take a line's room.

#include <QList>

class QFormLayout;
class QWidget;

// The figures at one common width, the widest one's; only fields that expand (a name, a note)
// grow with the form.
void compactFigures(QFormLayout *form, const QList<QWidget *> &figures);
