#pragma once

#include <QMainWindow>

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);

    // Opens a profile; -1 runs the new-profile wizard first. False when there is none to open
    // (the wizard was cancelled).
    bool openProfile(int user_id);
    int currentUser() const { return _userId; }

    // Version and the sources of the reference foods and exercises.
    QString aboutText() const;

public slots:
    // Texts from another starting copy of the program ("Wake up!").
    void processMessage(const QString &message);

private:
    int _userId = -1;
};
