#pragma once

#include <QDoubleSpinBox>

// The amount of a serving: takes fractions as people write them ("1/2", "1 1/2", "½") as well
// as decimals, and shows a value without trailing zeros ("0.333", "1.5", "2").
class QuantitySpinBox : public QDoubleSpinBox
{
public:
    // From 0.01 to 10000 of a serving.
    explicit QuantitySpinBox(QWidget *parent = nullptr);
    // As a table's cell editor: no frame, the figure on the right as the cell shows it.
    static QuantitySpinBox *inCell(QWidget *parent);

    // The amount to keep: the stored one while the box still shows it as it was shown (a third
    // as 0.333), else the one typed.
    double valueKeeping(double stored) const;

protected:
    QValidator::State validate(QString &text, int &pos) const override;
    double valueFromText(const QString &text) const override;
    QString textFromValue(double value) const override;
};
