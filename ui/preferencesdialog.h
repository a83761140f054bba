#pragma once

// The profile's preferences: units of measure and energy, how snacks are shown, the budget and
// exercise target of the green ticks; the diary's columns; the web account, publishing, proxy,
// backup folder and the database update interval.

#include <QDialog>

class QComboBox;
class QLineEdit;
class QSpinBox;

class PreferencesDialog : public QDialog
{
    Q_OBJECT

public:
    PreferencesDialog(int user_id, QWidget *parent = nullptr);
    void accept() override;

private:
    int _userId;
    QComboBox *_units;
    QComboBox *_energy;
    QComboBox *_snacks;
    QComboBox *_budget;
    QSpinBox *_exercise;
    QLineEdit *_webServer;
    QLineEdit *_webUser;
    QLineEdit *_webPassword;
    QSpinBox *_updateDays;
    class QCheckBox *_autoPublish;
    class QCheckBox *_askBeforePublish;
    QLineEdit *_proxy;
    QLineEdit *_backupFolder;
    class QListWidget *_columns;
};
