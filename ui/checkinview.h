#pragma once

// The day's check-in: weight and the measurements the brand enables, steps and a note, in the
// profile's units; saved with one button, and a history of earlier check-ins to edit or delete.

#include <QDate>
#include <QWidget>

class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QTreeWidget;

class CheckInView : public QWidget
{
    Q_OBJECT

public:
    explicit CheckInView(QWidget *parent = nullptr);

    void setUser(int user_id);
    void setDate(const QDate &date);
    QDate date() const { return _date; }

    bool save();
    void removeSelected();

signals:
    void checkInChanged();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();
    void fillHistory();

    int _userId = -1;
    QDate _date = QDate::currentDate();
    QLabel *_title;
    QDoubleSpinBox *_weight;
    QDoubleSpinBox *_chest;
    QDoubleSpinBox *_waist;
    QDoubleSpinBox *_hip;
    QDoubleSpinBox *_thigh;
    QSpinBox *_steps;
    QLineEdit *_note;
    QTreeWidget *_history;
    bool _historyStale = true;
};
