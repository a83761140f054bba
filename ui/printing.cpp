#include "ui/printing.h"

#include "app/lmsettings.h"
#include "reports/diarysheet.h"
#include "reports/pagewriter.h"
#include "reports/reportoutput.h"
#include "reports/reportpages.h"

#include <QComboBox>
#include <QFileInfo>
#include <QPdfWriter>
#include <QPrintDialog>
#include <QPrintPreviewDialog>
#include <QPrintPreviewWidget>
#include <QPrinter>
#include <QToolBar>

namespace {

const QString kSpanKey = QStringLiteral("/print/span");

} // namespace

DiaryPrinting::DiaryPrinting(QWidget *window)
    : QObject(window)
    , _window(window)
{
}

void DiaryPrinting::setDay(int userId, const QDate &day)
{
    _userId = userId;
    _day = day;
}

DiaryPrinting::Span DiaryPrinting::span() const
{
    return LmSettings::readValue(kSpanKey, int(Day)).toInt() == Week ? Week : Day;
}

void DiaryPrinting::setSpan(Span span)
{
    if (span != this->span())
        LmSettings::writeValue(kSpanKey, int(span));
}

bool DiaryPrinting::paint(QPagedPaintDevice *device)
{
    if (_userId < 0)
        return false;
    if (_report)
        return printReport(*_report, ReportUnits::of(_userId), device);
    QDate from = _day;
    QDate to = _day;
    if (span() == Week) {
        from = _day.addDays(1 - _day.dayOfWeek());
        to = from.addDays(6);
    }
    DiarySheet sheet(_userId, from, to);
    return sheet.print(device);
}

void DiaryPrinting::preview()
{
    QPrinter printer(QPrinter::HighResolution);
    QPrintPreviewDialog dialog(&printer, _window);
    dialog.setObjectName(QStringLiteral("printPreview"));
    dialog.setWindowTitle(tr("Print Preview"));
    connect(&dialog, &QPrintPreviewDialog::paintRequested, this, [this](QPrinter *device) { paint(device); });
    // The day or its week, chosen where the pages are seen.
    if (auto *tools = _report ? nullptr : dialog.findChild<QToolBar *>()) {
        auto *choice = new QComboBox(tools);
        choice->setObjectName(QStringLiteral("printSpan"));
        choice->addItems({tr("This day"), tr("This week")});
        choice->setCurrentIndex(span());
        tools->addSeparator();
        tools->addWidget(choice);
        connect(choice, &QComboBox::currentIndexChanged, &dialog, [this, &dialog](int index) {
            setSpan(index == Week ? Week : Day);
            if (auto *pages = dialog.findChild<QPrintPreviewWidget *>())
                pages->updatePreview();
        });
    }
    dialog.exec();
}

void DiaryPrinting::print()
{
    QPrinter printer(QPrinter::HighResolution);
    QPrintDialog dialog(&printer, _window);
    dialog.setWindowTitle(tr("Print Diary"));
    if (dialog.exec() == QDialog::Accepted)
        paint(&printer);
}

QString DiaryPrinting::exportPdf(const QString &fileName)
{
    QPdfWriter pdf(fileName);
    pdf.setCreator(QStringLiteral("Tarnwell"));
    PageWriter::useA4(&pdf);
    if (!paint(&pdf))
        return tr("Cannot write %1.").arg(QFileInfo(fileName).fileName());
    return QString();
}
