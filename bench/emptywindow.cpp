// The floor of the desktop program's start: a Qt program that shows an empty main window and ends.

#include <QApplication>
#include <QMainWindow>
#include <QTimer>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QMainWindow window;
    window.show();
    QTimer::singleShot(0, &app, &QApplication::quit);
    return QApplication::exec();
}
