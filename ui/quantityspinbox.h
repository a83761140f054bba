#pragma once

#include <QDoubleSpinBox>

// The amount of a serving: takes fractions as people write them ("1/2", "1 1/2", "½") as well
// as decimals, and shows a value without trailing zeros ("0.333", "1.5", "2").
class QuantitySpinBox : public QDoubleSpinBox
{
public:
    explicit QuantitySpinBox(QWidget *parent = nullptr);

    // The amount to keep: the stored one while the box still shows it as it was shown (a third
    // as 0.333), else the one typed.
    double valueKeeping(double stored) const;

protected:
    QValidator::State validate(QString &text, int &pos) const override;
    double valueFromText(const QString &text) const override;
    QString textFromValue(double value) const override;
};
