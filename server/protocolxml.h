#pragma once

// The replies the program reads, written as it has always read them: the one-element response
// of a publish or a metrics upload, the meal plan, and the reference-database update feed.

#include "server/mealplandb.h"
#include "server/protocolerror.h"

#include <QByteArray>
#include <QDate>
#include <QList>
#include <QString>

#include <optional>

namespace ProtocolXml {

// <response errno=".." errstr=".." />; errstr defaults to the error's own text.
QByteArray response(ProtocolError error, const QString &errstr = QString());

// <mealplan> with a <food> per planned food (meal as a word, date as yyyyMMdd).
QByteArray mealPlan(const QList<PlannedFood> &foods);
QByteArray mealPlanError(ProtocolError error);

// An RSS 2.0 channel. With a published database, an item titled "staticdb_updates" links to
// databaseUrl, dated at the end of the database's creation day (UTC): a program whose own
// database was made that day is up to date, an older one is offered the file.
QByteArray updateFeed(const QString &siteUrl, const QString &databaseUrl, std::optional<QDate> created);

// Text for an attribute value or element content: markup characters as references, line breaks
// and tabs as character references (kept through attribute normalisation), and the control
// characters XML 1.0 cannot hold left out.
QString escape(const QString &text);

} // namespace ProtocolXml
