#include "model/dateconversion.h"

#include "common/lmassert.h"

#include <QLocale>

namespace DateConversion {

QDate toQDate(const QString &day)
{
    const bool lengthOk = day.size() == 8;
    if (!lengthOk)
        Lm::assertFailed("strlen(date) == 8", __FILE__, __LINE__);
    // A day string is ASCII digits only; nothing else reaches the date parser.
    for (const QChar c : day) {
        if (c < u'0' || c > u'9')
            return QDate();
    }
    return QDate::fromString(toWebDate(day), Qt::ISODate);
}

namespace {

// The date's digits, year, month and day, with the separator between them unless it is null;
// empty when the year has no four digits. Written by hand: days are keyed by the thousand, and
// Qt's formatting goes through a format string.
QString digits(const QDate &date, char16_t separator)
{
    int year = 0, month = 0, day = 0;
    date.getDate(&year, &month, &day);
    if (!date.isValid() || year < 1 || year > 9999)
        return QString();
    char16_t text[10];
    qsizetype n = 0;
    for (const int digit : {year / 1000, year / 100 % 10, year / 10 % 10, year % 10})
        text[n++] = char16_t(u'0' + digit);
    for (const int part : {month, day}) {
        if (separator)
            text[n++] = separator;
        text[n++] = char16_t(u'0' + part / 10);
        text[n++] = char16_t(u'0' + part % 10);
    }
    return QString(reinterpret_cast<const QChar *>(text), n);
}

} // namespace

QString fromQDate(const QDate &date)
{
    return digits(date, 0);
}

QString toWebDate(const QDate &date)
{
    return digits(date, u'-');
}

QString toWebDate(const QString &day)
{
    if (day.size() != 8)
        return QString();
    return day.left(4) + QLatin1Char('-') + day.mid(4, 2) + QLatin1Char('-') + day.mid(6, 2);
}

QString longDayName(const QDate &date)
{
    return QLocale::c().toString(date, QStringLiteral("dddd, MMMM d yyyy"));
}

} // namespace DateConversion
