#pragma once

// The summary report of a day as HTML, in the display units the registry holds: energy eaten and
// burned against the target, BMI and the weight forecast when the profile allows them.

#include <QDate>
#include <QString>

QString daySummaryReport(int userId, const QDate &date);
