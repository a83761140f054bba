#pragma once

// A report by the name the tool and the window give it, over a range.

#include "reports/reportdocument.h"

#include <QStringList>

extern const QStringList
    kReportNames; // "energy", "nutrients", "weight", "measurements", "steps", "breakdown"

// nutrient: the nutrient type the nutrients and breakdown reports follow.
ReportDocument buildReport(const QString &name, int userId, const ReportRange &range, int nutrient);
