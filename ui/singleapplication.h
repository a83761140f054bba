#pragma once

// One running copy of the program per login. A starting copy hands its message ("Wake up!") to
// the running one over a local socket and ends; the running one hears it as messageReceived().
// The socket's name comes from the program's identifier and the login name (SingleCopy); its
// lock decides which copy listens when two start at once.

#include <QApplication>
#include <QString>

class QLocalServer;

class SingleApplication : public QApplication
{
    Q_OBJECT

public:
    SingleApplication(const QString &identifier, int &argc, char **argv);
    ~SingleApplication() override;

    // True when a running copy took the message within the time.
    bool sendMessage(const QString &message, int timeoutMs);
    // Starts listening for later copies; false when another copy holds the lock.
    bool initialize();

signals:
    void messageReceived(const QString &message);

private:
    void acceptConnection();

    QString _identifier;
    QString _name;
    int _lockFd = -1;
    QLocalServer *_server = nullptr;
};
