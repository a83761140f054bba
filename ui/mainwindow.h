#pragma once

#include <QMainWindow>

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);

    // Version and the sources of the reference foods and exercises.
    QString aboutText() const;

public slots:
    // Texts from another starting copy of the program ("Wake up!").
    void processMessage(const QString &message);
};
