#pragma once

// The new-profile wizard: who (name, sex, birth date), body and aims (units, height, weight,
// activity, goal), then the energy requirement and the diet plan's targets that follow. Finishing
// creates the profile.

#include <QWizard>

class QComboBox;
class QDateEdit;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QRadioButton;
class QSpinBox;

class NewProfileWizard : public QWizard
{
    Q_OBJECT

public:
    explicit NewProfileWizard(QWidget *parent = nullptr);

    int createdUserId() const { return _userId; }
    void accept() override;

private:
    bool imperial() const;
    double heightCm() const;
    double weightKg() const;
    void unitsChanged();
    void showTargets();

    QLineEdit *_name;
    QRadioButton *_female;
    QRadioButton *_male;
    QDateEdit *_born;
    QComboBox *_units;
    QLabel *_heightLabel;
    QDoubleSpinBox *_heightCm;
    QSpinBox *_heightFeet;
    QSpinBox *_heightInches;
    QDoubleSpinBox *_weight;
    QComboBox *_activity;
    QComboBox *_goal;
    QComboBox *_plan;
    QLabel *_targets;
    bool _imperialShown = false;
    int _userId = -1;
};
