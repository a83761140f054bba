#pragma once

// The summary report of one day: measurements, BMI with its risk word, waist-to-hip ratio, the
// energy recorded against the target, a forecast of weight change if the day were repeated, and
// the weight to lose to reach a BMI of 20. Produces the HTML fragment the desktop shows.

#include <QDate>
#include <QString>

class UnitDescriptor;

struct SummaryInputs
{
    QDate day;
    // The check-in in force (kg and cm; -1 when not measured).
    double weight = -1, chest = -1, waist = -1, hip = -1, thigh = -1;
    double height = 0;      // cm
    double eaten = 0;       // calories
    double burned = 0;      // calories
    double target = -1;     // calories; -1 when no target is in force
    double requirement = -1; // calories a day; -1 when it cannot be had (no forecast then)
    bool leaveOutBmi20 = false;
};

int reportedBmi(double weightKg, double heightCm); // rounded to a whole number
QString bmiRiskWord(int bmi);                      // with its leading space
double weightForBmi(double bmi, double heightCm);

struct WeightForecast
{
    QString word;  // "gain" or "loss"
    double change; // kg over the period
    int months;    // 1, 3 or 6
};
WeightForecast forecastWeight(double netEnergy, double requirement);

// Energy, weight and lengths are shown through the given units.
QString summaryReport(const SummaryInputs &inputs, const UnitDescriptor &energy, const UnitDescriptor &weight,
                      const UnitDescriptor &length);
