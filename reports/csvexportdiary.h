#pragma once

// The diary of a range of days as comma-separated text: one file for the whole range, one file
// per day in a folder ("yyyy-MM-dd", no extension), or both. Every live food and exercise entry
// becomes one line; deleted entries that wait for synchronisation are not exported.

#include "model/dbtypes.h"

#include <QDate>
#include <QString>

// Returns an error text, empty on success. A day file that cannot be written does not stop the
// export; the last such error is reported.
QString exportDiary(int userId, const QString &fileName, const QString &folder, const QDate &firstDay,
                    const QDate &lastDay, bool skipEmpty);

// The header line, and the lines of one day, exactly as written.
QByteArray csvHeader();
QByteArray csvDay(const QString &day, const DiaryDay &entries);
