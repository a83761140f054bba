#include "reports/reportpages.h"

#include "reports/pagewriter.h"
#include "reports/reportchart.h"
#include "reports/reportoutput.h"

#include <QCoreApplication>
#include <QLocale>

namespace {

constexpr qreal kChartHeight = 230;

class PageLayout : public ReportLayout
{
public:
    explicit PageLayout(PageWriter &out)
        : _out(out)
        , _plain(PageWriter::font(8))
        , _bold(PageWriter::font(8, true))
        , _row(PageWriter::lineHeight(_plain))
    {
    }

    void heading(const ReportDocument &document) override
    {
        const QFont big = PageWriter::font(14, true);
        _out.text(_out.left(), _out.width(), document.title, big);
        _out.advance(PageWriter::lineHeight(big));
        const QLocale locale;
        _out.text(_out.left(), _out.width(),
                  QCoreApplication::translate("ReportPages", "%1 to %2")
                      .arg(locale.toString(document.range.from(), QLocale::LongFormat),
                           locale.toString(document.range.to(), QLocale::LongFormat)),
                  _plain);
        _out.advance(_row * 1.5);
        _everyDay = tablesEveryDay(document.range);
    }

    void chart(const ReportDocument &document, const ReportUnits &units) override
    {
        // A report of tables alone (the breakdown) has no chart to draw.
        if (chartedSeries(document).isEmpty())
            return;
        _out.keepTogether(kChartHeight);
        paintReportChart(_out.painter(), QRectF(_out.left(), _out.y(), _out.width(), kChartHeight - 10),
                         document, units);
        _out.advance(kChartHeight);
    }

    void table(const QString &key, const QString &title, const QStringList &header,
               const QList<QStringList> &rows) override
    {
        if (rows.isEmpty() || (key == QLatin1String("days") && !_everyDay))
            return;
        const qreal width = _out.width() / qreal(header.size());
        const auto drawRow = [&](const QStringList &cells, const QFont &font) {
            for (qsizetype c = 0; c < header.size(); ++c)
                _out.text(_out.left() + width * qreal(c) + 2, width - 4, cells.value(c), font,
                          c == 0 ? Qt::AlignLeft : Qt::AlignRight);
            _out.advance(_row);
        };
        const auto heading = [&] {
            _out.text(_out.left(), _out.width(), title, PageWriter::font(10, true));
            _out.advance(_row * 1.4);
            drawRow(header, _bold);
            _out.painter().drawLine(QPointF(_out.left(), _out.y()),
                                    QPointF(_out.left() + _out.width(), _out.y()));
        };
        const qreal height = _row * (2.4 + qreal(rows.size()));
        _out.keepTogether(height <= _out.pageHeight() ? height : _row * 4);
        heading();
        for (const QStringList &cells : rows) {
            if (!_out.fits(_row)) {
                _out.newPage();
                heading();
            }
            drawRow(cells, _plain);
        }
        _out.advance(_row);
    }

private:
    PageWriter &_out;
    QFont _plain;
    QFont _bold;
    qreal _row;
    bool _everyDay = true;
};

} // namespace

bool printReport(const ReportDocument &document, const ReportUnits &units, QPagedPaintDevice *device,
                 int *pages)
{
    PageWriter out(device, document.title);
    if (!out.isActive())
        return false;
    PageLayout layout(out);
    layOutReport(document, units, layout);
    if (pages)
        *pages = out.page();
    return true;
}
