#pragma once

#include <QMainWindow>

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);

public slots:
    // Texts from another starting copy of the program ("Wake up!").
    void processMessage(const QString &message);
};
