#pragma once

// Quantities as people write and type them: "0.33" and "1.5" rather than "0.333333" and
// "1.50", fractions ("1 1/2"), and a count typed before a search's words ("2 eggs").

#include <QString>
#include <QStringView>

#include <optional>

// A quantity or a duration as a person writes it: at most two decimals, no trailing zeros
// ("0.33", "1.5", "2"); a tiny amount keeps two significant digits rather than showing as 0.
QString quantityText(double value);
// A quantity written as a fraction: "1/2", "1 1/2", "½", "1½". Nothing when the text is not one.
std::optional<double> fractionValue(QStringView text);
// A search that begins with how many ("2 eggs", "1/2 avocado", "1 1/2 bagel"): the count (a
// number above 0 up to kMostLeadingAmount, or a fraction) and the words after it. Without one,
// no count and the search as it is.
inline constexpr double kMostLeadingAmount = 20; // "100 grand" is a name, not a hundred of one
struct LeadingAmount
{
    std::optional<double> amount;
    QString rest;
};
LeadingAmount leadingAmount(const QString &search, double most = kMostLeadingAmount);
// The same for an activity: the minutes before its words ("30 walking", "45 min running"), up to
// a day's.
LeadingAmount leadingMinutes(const QString &search);
