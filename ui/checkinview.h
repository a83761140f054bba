#pragma once

// The day's check-in: weight and the measurements the brand enables, steps and a note, in the
// profile's units; saved with Enter or the button, and by itself when the day changes, so that
// nothing typed is lost. Below, the check-ins before the shown day, to open and edit.

#include <QDate>
#include <QWidget>

struct CheckIn;
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
    // Removes the shown day's check-in, when there is one (after asking).
    void removeShown();

signals:
    void checkInChanged();

protected:
    void showEvent(QShowEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void refresh();
    void fillHistory();
    // The form as a check-in of the shown day.
    CheckIn formValues() const;
    QString formText() const; // what the fields show, to tell an edit
    bool edited() const;

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
    QString _shown; // the form as it was loaded, to tell an edit from it
};
