#include "ui/formlayouts.h"

#include <QFormLayout>
#include <QWidget>

#include <algorithm>

void compactFigures(QFormLayout *form, const QList<QWidget *> &figures)
{
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    int width = 0;
    for (const QWidget *figure : figures)
        width = std::max(width, figure->sizeHint().width());
    for (QWidget *figure : figures)
        figure->setMinimumWidth(width);
}
