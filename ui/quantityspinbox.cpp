#include "ui/quantityspinbox.h"

#include "model/quantitytext.h"

#include <QRegularExpression>

QuantitySpinBox::QuantitySpinBox(QWidget *parent)
    : QDoubleSpinBox(parent)
{
    setDecimals(3); // a third is 0.333, not 0.33
    setRange(0.01, 10000);
}

QuantitySpinBox *QuantitySpinBox::inCell(QWidget *parent)
{
    auto *box = new QuantitySpinBox(parent);
    box->setFrame(false);
    box->setAlignment(Qt::AlignRight);
    return box;
}

double QuantitySpinBox::valueKeeping(double stored) const
{
    return value() == valueFromText(textFromValue(stored)) ? stored : value();
}

QValidator::State QuantitySpinBox::validate(QString &text, int &pos) const
{
    if (const std::optional<double> value = fractionValue(text))
        return *value >= minimum() && *value <= maximum() ? QValidator::Acceptable : QValidator::Intermediate;
    // On the way to a fraction: "1 ", "1 1", "1 1/".
    static const QRegularExpression partial(QStringLiteral(R"(^\s*\d{0,6}\s*(\d{1,6}\s*/?\s*)?$)"));
    if ((text.contains(QLatin1Char('/')) || text.contains(QLatin1Char(' '))) &&
        partial.match(text).hasMatch())
        return QValidator::Intermediate;
    return QDoubleSpinBox::validate(text, pos);
}

double QuantitySpinBox::valueFromText(const QString &text) const
{
    if (const std::optional<double> value = fractionValue(text))
        return *value;
    return QDoubleSpinBox::valueFromText(text);
}

QString QuantitySpinBox::textFromValue(double value) const
{
    QString text = QDoubleSpinBox::textFromValue(value);
    const QString point = locale().decimalPoint();
    if (text.contains(point)) {
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
        if (text.endsWith(point))
            text.chop(point.size());
    }
    return text;
}
