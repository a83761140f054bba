#pragma once

// The main window: the sections Diary, Check-in and Reports beside each other, a menu bar and
// tool bar with every command and its shortcut, and the status bar.

#include <QMainWindow>

class BackgroundServices;
class CheckInView;
class DiaryPrinting;
class QAction;
class QMenu;
class DiaryView;
class QListWidget;
class QStackedWidget;
class ReportsView;

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    enum Section { DiarySection, CheckInSection, ReportsSection };

    explicit MainWindow(QWidget *parent = nullptr);

    // Opens a profile; -1 runs the new-profile wizard first. False when there is none to open
    // (the wizard was cancelled).
    bool openProfile(int user_id);
    int currentUser() const { return _userId; }
    DiaryView *diary() const { return _diary; }
    // Made when first wanted: the window starts faster without it.
    CheckInView *checkIn();
    ReportsView *reports(); // made when first asked for: the window shows the diary first
    void showSection(int section);
    // The preferences dialog; true when they changed.
    bool editPreferences();
    void applyPreferences();
    // Deletes the open profile and opens the next one (or runs the wizard).
    bool deleteProfile();
    // Publishes the profile's changes with the progress dialog; the result text.
    QString publishDiary();
    // The whole diary as CSV; the error text, empty on success.
    QString exportDiaryTo(const QString &fileName);
    // File > Print and the like for the shown day or its week.
    DiaryPrinting *printing();
    // The data backup, and its restore (which opens the profile again, or the backup's first);
    // the error text, shown too, empty on success.
    QString backUpDataTo(const QString &fileName);
    QString restoreDataFrom(const QString &fileName);

    // Version and the sources of the reference foods and exercises.
    QString aboutText() const;

protected:
    void closeEvent(QCloseEvent *event) override;

public slots:
    // Texts from another starting copy of the program ("Wake up!").
    void processMessage(const QString &message);

private:
    void createActions();
    void updateReport();

    int _userId = -1;
    QString _profileName;
    QAction *_newProfile;
    QMenu *_switchProfile;
    QAction *_panelAction;
    QListWidget *_sections;
    QStackedWidget *_pages;
    DiaryView *_diary;
    QWidget *_checkInPage;
    CheckInView *_checkIn = nullptr;
    QWidget *_reportsPage;
    ReportsView *_reports = nullptr;
    BackgroundServices *_background;
    DiaryPrinting *_printing = nullptr;
};
