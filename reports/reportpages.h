#pragma once

// A report on paged output: its heading, the chart as vectors, then its tables (the days only
// for a month or less, the chart shows longer runs), each kept whole on a page unless it is
// longer than one, when it goes on with its header repeated.

#include "reports/reportdocument.h"

class QPagedPaintDevice;
class ReportUnits;

// False when the device cannot be painted on; pages, when asked, is how many were written.
bool printReport(const ReportDocument &document, const ReportUnits &units, QPagedPaintDevice *device,
                 int *pages = nullptr);
