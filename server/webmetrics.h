#pragma once

// The statistics page's reading of metrics_days: the programs' usage counts per day, as the
// metrics endpoint stores them.

#include "server/webpages.h"

#include <QDate>
#include <QList>

class ServerDB;

// Days from..to (inclusive) with any count, by date; empty when the store fails.
QList<WebPages::MetricsDay> readMetricsDays(ServerDB &db, const QDate &from, const QDate &to);
