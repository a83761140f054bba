#include "reports/diarysheet.h"

#include "db/goals.h"
#include "db/userdb.h"
#include "model/dateconversion.h"
#include "model/unitdescriptor.h"
#include "reports/daytable.h"
#include "reports/pagewriter.h"
#include "reports/textlines.h"

#include <QCoreApplication>
#include <QLocale>

#include <algorithm>
#include <cmath>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("DiarySheet", text);
}

// Column widths in points: the name takes what the figures leave.
struct Columns
{
    QList<qreal> x;
    QList<qreal> width;
};

Columns layOut(qreal total, qsizetype nutrients)
{
    qreal quantity = 50;
    qreal serving = 100;
    qreal figure = 46;
    qreal name = total - quantity - serving - figure * qreal(nutrients);
    if (name < 120) {
        serving = 72;
        figure = std::max<qreal>(30, (total - 120 - quantity - serving) /
                                         qreal(std::max<qsizetype>(1, nutrients)));
        name = total - quantity - serving - figure * qreal(nutrients);
    }
    Columns columns;
    qreal x = 0;
    for (const qreal w : QList<qreal>{name, quantity, serving}) {
        columns.x.append(x);
        columns.width.append(w);
        x += w;
    }
    for (qsizetype i = 0; i < nutrients; ++i) {
        columns.x.append(x);
        columns.width.append(figure);
        x += figure;
    }
    return columns;
}

// The day's totals against its targets, one line each.
QStringList standingLines(const DayTable &table, int waterGoal, int water)
{
    const DayStanding standing = table.standing();
    QStringList lines{energyStandingText(standing, false)};
    for (const NutrientStanding &n : standing.nutrients) {
        QString text = UnitRegistry::instance().getUnitForNutrient(n.type)->getName() + QStringLiteral(": ") +
                       nutrientFiguresText(n);
        if (n.hasTarget())
            text += QStringLiteral(", ") + nutrientRemainingText(n);
        lines.append(text);
    }
    if (const QString shares = energySharesText(standing); !shares.isEmpty())
        lines.append(shares);
    lines.append(tr("Water: %1 of %2 glasses").arg(water).arg(waterGoal));
    if (const std::optional<GreenTicks> ticks = table.ticks()) {
        lines.append((ticks->foodTick ? tr("Food tick earned. ") : tr("No food tick. ")) + ticks->foodText);
        lines.append((ticks->exerciseTick ? tr("Exercise tick earned. ") : tr("No exercise tick. ")) +
                     ticks->exerciseText);
    }
    return lines;
}

} // namespace

DiarySheet::DiarySheet(int userId, const QDate &from, const QDate &to)
    : _userId(userId)
    , _from(from)
    , _to(to)
{
}

QString DiarySheet::title() const
{
    const QString who = UserDB::getUser(_userId).value_or(UserProfile()).name;
    const QString days = _from == _to ? DateConversion::longDayName(_from)
                                      : tr("%1 to %2")
                                            .arg(QLocale().toString(_from, QLocale::ShortFormat),
                                                 QLocale().toString(_to, QLocale::ShortFormat));
    return tr("Diary of %1: %2").arg(who, days);
}

bool DiarySheet::print(QPagedPaintDevice *device)
{
    _blocks.clear();
    _pages = 0;
    PageWriter out(device, title());
    if (!out.isActive())
        return false;
    UserDB::applyDisplayUnits(_userId);
    const QList<int> nutrientColumns = DayTable::columnsOf(_userId);
    const Columns columns = layOut(out.width(), nutrientColumns.size());
    const QFont heading = PageWriter::font(13, true);
    const QFont plain = PageWriter::font(8);
    const QFont bold = PageWriter::font(8, true);
    const qreal row = PageWriter::lineHeight(plain);
    const qreal headingHeight = PageWriter::lineHeight(heading) + 4;
    const int waterGoal = Goals::waterGoal(_userId);
    const auto isFigure = [](qsizetype column) {
        return column == DayTable::QuantityColumn || column >= DayTable::FirstNutrientColumn;
    };
    // A row's cells as lines: the words of a long name or serving go on to the lines below (a
    // sheet has no tooltip to tell the rest), the figures stay on the first.
    struct Laid
    {
        QList<QStringList> cells;
        qsizetype lines = 1;
    };
    const auto layOutRow = [&](const QStringList &texts, const QFont &font) {
        Laid laid;
        for (qsizetype c = 0; c < columns.x.size(); ++c) {
            laid.cells.append(isFigure(c) ? QStringList{texts.value(c)}
                                          : wrappedLines(texts.value(c), font, columns.width[c] - 4, 3));
            laid.lines = std::max(laid.lines, laid.cells.constLast().size());
        }
        return laid;
    };
    const auto drawLaid = [&](const Laid &laid, const QFont &font, bool shaded) {
        if (shaded)
            out.painter().fillRect(QRectF(out.left(), out.y(), out.width(), row * qreal(laid.lines)),
                                   QColor(0xee, 0xf3, 0xee));
        for (qsizetype c = 0; c < laid.cells.size(); ++c) {
            if (isFigure(c))
                out.text(out.left() + columns.x[c] + 2, columns.width[c] - 4, laid.cells[c].value(0), font,
                         Qt::AlignRight);
            else
                out.lines(out.left() + columns.x[c] + 2, columns.width[c] - 4, laid.cells[c], font);
        }
        out.advance(row * qreal(laid.lines));
    };
    const auto drawRow = [&](const QStringList &texts, const QFont &font, bool shaded) {
        drawLaid(layOutRow(texts, font), font, shaded);
    };

    for (QDate day = _from; day <= _to; day = day.addDays(1)) {
        const DayTable table = DayTable::read(_userId, day, nutrientColumns);
        // The meals with entries, each entry laid out once, and the height of each meal.
        struct Meal
        {
            const DayTable::Group *group;
            QList<Laid> entries;
            qreal height;
        };
        QList<Meal> shown;
        for (const DayTable::Group &group : table.groups) {
            if (group.entries.isEmpty())
                continue;
            Meal meal{&group, {}, row};
            for (const DayTable::Row &entry : group.entries) {
                meal.entries.append(layOutRow(entry.texts, plain));
                meal.height += row * qreal(meal.entries.constLast().lines);
            }
            shown.append(meal);
        }
        // The day's heading stays with its first meal.
        const qreal firstBlock = shown.isEmpty() ? row : shown.first().height;
        out.keepTogether(headingHeight + row + firstBlock);
        out.text(out.left(), out.width(), DateConversion::longDayName(day), heading);
        out.advance(headingHeight);
        drawRow(table.headers, bold, false);
        out.painter().drawLine(QPointF(out.left(), out.y()), QPointF(out.left() + out.width(), out.y()));
        if (shown.isEmpty()) {
            out.text(out.left() + 2, out.width(), tr("Nothing logged."), plain);
            out.advance(row);
        }
        // A day carried onto the next page says so, with the column names again.
        const auto makeRoom = [&](qreal height) {
            if (out.fits(height))
                return;
            out.newPage();
            out.text(out.left(), out.width(), tr("%1 (continued)").arg(DateConversion::longDayName(day)),
                     bold);
            out.advance(row);
            drawRow(table.headers, bold, false);
        };
        for (const Meal &meal : std::as_const(shown)) {
            // Longer than a page: at least its name and one entry together.
            makeRoom(meal.height <= out.pageHeight() - 2 * row ? meal.height : row * 2);
            Block block{day, meal.group->row.texts.value(DayTable::NameColumn), out.page(), out.page()};
            drawRow(meal.group->row.texts, bold, true);
            for (const Laid &entry : meal.entries) {
                makeRoom(row * qreal(entry.lines));
                drawLaid(entry, plain, false);
            }
            block.lastPage = out.page();
            _blocks.append(block);
        }
        const int water = UserDB::getWater(_userId, DateConversion::fromQDate(day));
        if (!shown.isEmpty() || water > 0) {
            // Each line whole, on as many as it takes (the green ticks' words run long).
            QList<QStringList> lines;
            qsizetype count = 0;
            for (const QString &line : standingLines(table, waterGoal, water)) {
                lines.append(wrappedLines(line, lines.isEmpty() ? bold : plain, out.width() - 4, 4));
                count += lines.constLast().size();
            }
            out.advance(row / 2);
            makeRoom(row * qreal(count));
            Block totals{day, tr("Totals"), out.page(), out.page()};
            for (qsizetype i = 0; i < lines.size(); ++i) {
                out.lines(out.left() + 2, out.width() - 4, lines.at(i), i == 0 ? bold : plain);
                out.advance(row * qreal(lines.at(i).size()));
            }
            _blocks.append(totals);
        }
        out.advance(row);
    }
    _pages = out.page();
    return true;
}
