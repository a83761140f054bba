#include "cli/cli.h"

#include <QLocale>

#include <cmath>
#include <cstdio>

namespace Cli {

Arguments::Arguments(const QStringList &args, const QStringList &valueOptions, const QStringList &flags)
{
    bool optionsEnded = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        if (optionsEnded || !arg.startsWith(QLatin1String("--"))) {
            _positionals.append(arg);
            continue;
        }
        if (arg == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        QString name = arg;
        QString value;
        bool inlineValue = false;
        if (const qsizetype eq = arg.indexOf(QLatin1Char('=')); eq > 0) {
            name = arg.left(eq);
            value = arg.mid(eq + 1);
            inlineValue = true;
        }
        if (flags.contains(name)) {
            if (inlineValue)
                usageError(QStringLiteral("option %1 takes no value").arg(name));
            _flags.insert(name);
        } else if (valueOptions.contains(name)) {
            if (!inlineValue) {
                if (i + 1 >= args.size())
                    usageError(QStringLiteral("option %1 needs a value").arg(name));
                value = args.at(++i);
            }
            _values.insert(name, value);
        } else {
            usageError(QStringLiteral("unknown option %1").arg(name));
        }
    }
}

void Arguments::expectPositionals(int min, int max, const QString &usage) const
{
    if (_positionals.size() < min || _positionals.size() > max)
        usageError(QStringLiteral("usage: tarnwell-cli %1").arg(usage));
}

QDate parseDate(const QString &text, const QString &what)
{
    const QDate today = QDate::currentDate();
    if (text == QLatin1String("today"))
        return today;
    if (text == QLatin1String("yesterday"))
        return today.addDays(-1);
    const QDate date = QDate::fromString(text, QStringLiteral("yyyy-MM-dd"));
    if (!date.isValid() || text.size() != 10)
        usageError(QStringLiteral("%1: '%2' is not a date (YYYY-MM-DD, today or yesterday)").arg(what, text));
    return date;
}

int parseMeal(const QString &text)
{
    static const char *const names[] = {"breakfast", "snack1", "lunch", "snack2", "dinner", "snack3"};
    for (int i = 0; i < 6; ++i) {
        if (text == QLatin1String(names[i]) || text == QString::number(i + 1))
            return i + 1;
    }
    usageError(QStringLiteral("'%1' is not a meal (breakfast, snack1, lunch, snack2, dinner, snack3 or 1 to 6)")
                   .arg(text));
}

double parseNumber(const QString &text, const QString &what, double min, double max)
{
    bool ok = false;
    const double value = QLocale::c().toDouble(text, &ok);
    if (!ok || !std::isfinite(value))
        usageError(QStringLiteral("%1: '%2' is not a number").arg(what, text));
    if (value < min || value > max) {
        usageError(QStringLiteral("%1: %2 is out of range (%3 to %4)")
                       .arg(what, text, QLocale::c().toString(min), QLocale::c().toString(max)));
    }
    return value;
}

int parseInteger(const QString &text, const QString &what, int min, int max)
{
    bool ok = false;
    const int value = QLocale::c().toInt(text, &ok);
    if (!ok)
        usageError(QStringLiteral("%1: '%2' is not a whole number").arg(what, text));
    if (value < min || value > max)
        usageError(QStringLiteral("%1: %2 is out of range (%3 to %4)").arg(what, text).arg(min).arg(max));
    return value;
}

bool parseYesNo(const QString &text, const QString &what)
{
    if (text == QLatin1String("yes"))
        return true;
    if (text == QLatin1String("no"))
        return false;
    usageError(QStringLiteral("%1: '%2' is not yes or no").arg(what, text));
}

void printLine(const QString &line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fputc('\n', stdout);
}

void printNote(const QString &line)
{
    std::fflush(stdout);
    std::fprintf(stderr, "tarnwell-cli: %s\n", qUtf8Printable(line));
}

void printJson(const QByteArray &document)
{
    std::fwrite(document.constData(), 1, size_t(document.size()), stdout);
    if (!document.endsWith('\n'))
        std::fputc('\n', stdout);
}

QString escapeField(const QString &value)
{
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        switch (c.unicode()) {
        case '\\':
            out += QLatin1String("\\\\");
            break;
        case '\t':
            out += QLatin1String("\\t");
            break;
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        default:
            out += c;
        }
    }
    return out;
}

} // namespace Cli
