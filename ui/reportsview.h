#pragma once

// The Reports section: the day's summary and the reports over a range (energy, nutrients,
// weight, measurements, steps, breakdown), each as a chart and the table of its figures. It
// follows the profile, the shown day and the diary, and reads again only when shown.

#include "reports/reportdocument.h"

#include <QDate>
#include <QWidget>

#include <optional>

class QChartView;
class QComboBox;
class QDateEdit;
class QListWidget;
class QStackedWidget;
class QTextBrowser;

class ReportsView : public QWidget
{
    Q_OBJECT

public:
    enum Report { Summary, Energy, Nutrients, Weight, Measurements, Steps, Breakdown };

    explicit ReportsView(QWidget *parent = nullptr);

    void setUser(int userId);
    void setDay(const QDate &day);
    // Reads the shown report again (after a change to the diary, or when the section is shown).
    void refresh();

    Report report() const;
    void setReport(Report report);
    // A ReportRange::Kind; Dates for the shown day alone. Between two dates, the first and last.
    void setRange(int kind);
    void setDates(const QDate &first, const QDate &last);
    static constexpr int kBetweenDates = -1;
    // The shown report over its range; none for the day's summary.
    const std::optional<ReportDocument> &document() const { return _document; }

private:
    void showDocument();

    int _userId = -1;
    QDate _day = QDate::currentDate();
    QListWidget *_reports;
    QComboBox *_range;
    QComboBox *_nutrient;
    QDateEdit *_from;
    QDateEdit *_to;
    QStackedWidget *_pages;
    QTextBrowser *_summary;
    QChartView *_chart;
    QTextBrowser *_tables;
    std::optional<ReportDocument> _document;
};
