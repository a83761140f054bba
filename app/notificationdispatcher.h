#pragma once

// Named notifications between parts that must react to changes elsewhere ("app_about_to_start",
// "dynamicdb_reloaded_notification", "staticdb_update_notification"). Everything runs on the one
// interface thread, so delivery is immediate.

#include <QObject>
#include <QString>

class NotificationDispatcher : public QObject
{
    Q_OBJECT

public:
    static NotificationDispatcher *instance();
    static void send(const QString &name) { emit instance()->notified(name); }

signals:
    void notified(const QString &name);
};
