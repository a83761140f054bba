#pragma once

// The publish progress: the five steps with their marks, the connection's status line ("Host %1
// found", "Connected to host %1", ...), a progress bar, and a button that cancels while
// publishing and closes after (counting down from five after a success).

#include <QDialog>

class LmPublish;
class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

class PublishProgressDialog : public QDialog
{
    Q_OBJECT

public:
    explicit PublishProgressDialog(QWidget *parent = nullptr);

    // Publishes the profile's changes; the result text, empty when nothing was sent.
    QString publish(int user_id);

public slots:
    void updateProgress(int done, int total);
    void setStep(int step, bool ok, const QString &text);
    void finish(const QString &result);

private:
    QLabel *_marks[5];
    QLabel *_texts[5];
    QLabel *_status;
    QProgressBar *_progress;
    QPushButton *_button;
    QTimer *_countdown;
    int _secondsLeft = 5;
    bool _finished = false;
};
