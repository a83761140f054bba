#pragma once

// File > Print, Print Preview and Export as PDF for the diary: the shown day, or the week
// (Monday to Sunday) that holds it. The preview's tool bar chooses between the two, and the
// choice is kept for the next print.

#include <QDate>
#include <QObject>

class QPagedPaintDevice;
class QWidget;

class DiaryPrinting : public QObject
{
    Q_OBJECT

public:
    enum Span { Day, Week };

    explicit DiaryPrinting(QWidget *window);

    void setDay(int userId, const QDate &day);
    Span span() const;
    void setSpan(Span span);

    void preview();
    void print();
    // Writes the pages to a PDF file; an error text, empty on success.
    QString exportPdf(const QString &fileName);

private:
    bool paint(QPagedPaintDevice *device);

    QWidget *_window;
    int _userId = -1;
    QDate _day;
};
