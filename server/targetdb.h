#pragma once

// A member's daily targets as the web pages keep them (the program does not publish its goals):
// energy in calories, fat, carbohydrate, protein and fibre in grams, sodium in milligrams. A
// target left empty is none.

#include <QString>

#include <array>
#include <optional>

class ServerDB;

struct MemberTargets
{
    enum Field { Energy, Fat, Carbs, Protein, Fiber, Sodium, Count };
    std::array<std::optional<double>, Count> values;

    // The column of each field, in Field order.
    static const std::array<const char *, Count> kColumns;
    // Largest value a form may set for each field: anything beyond is a typing error.
    static const std::array<double, Count> kLimits;
    bool isEmpty() const;
};

class TargetDB
{
public:
    explicit TargetDB(ServerDB &db);

    MemberTargets targets(qint64 memberId);
    // Values must be finite, from 0 to the field's limit; otherwise nothing changes.
    bool setTargets(qint64 memberId, const MemberTargets &targets, QString *error);

private:
    ServerDB &_db;
};
