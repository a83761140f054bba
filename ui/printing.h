#pragma once

// File > Print, Print Preview and Export as PDF: the shown report, or the diary of the shown
// day or of the week (Monday to Sunday) that holds it. For the diary the preview's tool bar
// chooses between the two, and the choice is kept for the next print.

#include "reports/reportdocument.h"

#include <QDate>
#include <QObject>

#include <optional>

class QPagedPaintDevice;
class QWidget;

class DiaryPrinting : public QObject
{
    Q_OBJECT

public:
    enum Span { Day, Week };

    explicit DiaryPrinting(QWidget *window);

    void setDay(int userId, const QDate &day);
    // The report to print instead of the diary; none for the diary.
    void setReport(const std::optional<ReportDocument> &report) { _report = report; }
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
    std::optional<ReportDocument> _report;
};
