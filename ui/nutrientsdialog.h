#pragma once

// All ten values of a food, for the chosen serving and quantity and per 100 g (or 100 mL), in
// the profile's units; "-" where the reference lists give no value.

#include <QDialog>

class NutrientsDialog : public QDialog
{
    Q_OBJECT

public:
    NutrientsDialog(int foodId, int servingId, float quantity, QWidget *parent = nullptr);
};
