#pragma once

// For the page files only: the diary table's columns as the day page, the plan and the targets
// show them, and the cells and dates they are written with.

#include "server/serverdiarydb.h"
#include "server/targetdb.h"
#include "server/webhtml.h"

#include <array>
#include <optional>

namespace WebPages {

// The figures of a diary row, in the order the columns show them.
enum Column { Energy, Carbs, Fat, Protein, Fiber, Sodium, ColumnCount };

struct ColumnInfo
{
    const char *label;
    size_t valueIndex;           // in kFoodValueNames
    MemberTargets::Field target; // the matching target
    const char *unit;
    bool limit; // not to be gone over; otherwise a goal to reach
};

inline const std::array<ColumnInfo, ColumnCount> kColumns = {{
    {"Calories", 0, MemberTargets::Energy, "cals", true},
    {"Carbs", 4, MemberTargets::Carbs, "g", true},
    {"Fat", 1, MemberTargets::Fat, "g", true},
    {"Protein", 3, MemberTargets::Protein, "g", false},
    {"", 2, MemberTargets::Fiber, "g", false}, // the brand's spelling of fibre
    {"Sodium", 7, MemberTargets::Sodium, "mg", true},
}};

using Sums = std::array<double, ColumnCount>;

QString columnLabel(int c);
QString figure(int c, std::optional<double> value);
QString amount(int c, double value); // the figure and its unit
// The column heads of a diary table with its first figure columns.
QString headerCells(int figures = ColumnCount);
QString numberCell(const QString &text);
QString shortDate(const QDate &date); // "Mon, Mar 3 2025", in the order of longDayName()

} // namespace WebPages
