#pragma once

// What the desktop program does on its own once its window is up: usage metrics 15 ms after the
// start (where the brand enables them), and the reference database check every
// "/staticdb/updateInterval" days (where the brand offers updates). Both run on the event loop;
// neither holds up the window. Made by the main window, which tells it the open profile.

#include <QObject>
#include <QPointer>

class Metrics;
class QWidget;
class StaticDbUpdater;

class BackgroundServices : public QObject
{
    Q_OBJECT

public:
    static constexpr int kUpdateCheckDelayMs = 2000;
    static constexpr int kUpdateRecheckMs = 6 * 60 * 60 * 1000;

    explicit BackgroundServices(QWidget *window);
    ~BackgroundServices() override;

    void setUser(int user_id);
    // Starts both when the brand enables them; run at "app_about_to_start".
    void start();

private:
    void updateCheckFinished(bool error);

    QWidget *_window;
    int _userId = -1;
    Metrics *_metrics = nullptr;
    StaticDbUpdater *_updater = nullptr;
};
