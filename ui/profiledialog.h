#pragma once

// Editing a profile: name, sex, birth date, height (in the profile's units) and activity level.
// A changed height or activity counts from today on; earlier days keep theirs.

#include <QDialog>

class QComboBox;
class QDateEdit;
class QDoubleSpinBox;
class QLineEdit;

class ProfileDialog : public QDialog
{
    Q_OBJECT

public:
    ProfileDialog(int user_id, QWidget *parent = nullptr);
    void accept() override;

private:
    int _userId;
    QLineEdit *_name;
    QComboBox *_sex;
    QDateEdit *_born;
    QDoubleSpinBox *_height;
    QComboBox *_activity;
};
