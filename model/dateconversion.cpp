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

QString fromQDate(const QDate &date)
{
    // Years before 1 or after 9999 have no 8-character form.
    if (!date.isValid() || date.year() < 1 || date.year() > 9999)
        return QString();
    return QLocale::c().toString(date, QStringLiteral("yyyyMMdd"));
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
