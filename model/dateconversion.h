#pragma once

// Day strings: every dated row and entry is keyed by the 8-character text "yyyyMMdd". Web
// documents use "yyyy-MM-dd" instead.

#include <QDate>
#include <QString>

namespace DateConversion {

// The day must be exactly 8 characters (asserted); anything that is not a real day gives an
// invalid date.
QDate toQDate(const QString &day);
// "yyyyMMdd"; empty for an invalid date or one outside the years 1 to 9999.
QString fromQDate(const QDate &date);
// "yyyy-MM-dd" from a day string, character by character.
QString toWebDate(const QString &day);
// "yyyy-MM-dd"; empty for an invalid date or one outside the years 1 to 9999, as Qt::ISODate.
QString toWebDate(const QDate &date);
// "Monday, March 15 2007": English whatever the locale.
QString longDayName(const QDate &date);

} // namespace DateConversion
