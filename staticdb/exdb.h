#pragma once

// Exercises from the reference file (ids below 0x1000000) and the user's own (from 0x1000000,
// roots "My Exercises" at 0x1FFF000 + user id and "Shared Exercises" at 0x2000000). The burn rate
// ("scale") is in calories per minute per kilogram of body weight.

#include "staticdb/dynamicdb.h"
#include "staticdb/staticdb.h"

#include <QList>
#include <QString>

#include <memory>

// MET to burn rate: one MET is 0.0175 calories per minute per kilogram.
inline constexpr float kCaloriesPerMetMinuteKg = 0.0175f;

struct Exercise
{
    int id = -1;
    QString name;
    float scale = 0.0f;
};

class ExDBBase
{
public:
    virtual ~ExDBBase() = default;
    virtual bool exercise(int id, Exercise *exercise) const = 0;
};

class ExDBStatic : public ExDBBase, public StaticDB
{
public:
    explicit ExDBStatic(bool *failed = nullptr);
    // False for an unknown id or a payload without a burn rate.
    bool exercise(int id, Exercise *exercise) const override;
};

class ExDBDynamic : public ExDBBase, public DynamicDB
{
public:
    static const Tables kTables;

    explicit ExDBDynamic(int user_id);

    bool exercise(int id, Exercise *exercise) const override;
    int categoryOf(int id) const; // -1 for none

    // "My Exercises" of a user, "Shared Exercises" for -1; made when missing.
    static int userRootId(int user_id) { return DynamicDB::userRootId(kTables, user_id); }
    int addExercise(int category, const QString &description, float scale); // the new id, -1 on failure
    bool updateExercise(int id, const QString &description, float scale);
};

class ExDB
{
public:
    explicit ExDB(int user_id, bool *failed = nullptr);
    ~ExDB();

    ExDBStatic *staticDB() const { return _static.get(); } // null when the file failed
    ExDBDynamic *dynamicDB() const { return _dynamic.get(); }

    bool exercise(int id, Exercise *exercise) const;

private:
    std::unique_ptr<ExDBStatic> _static;
    std::unique_ptr<ExDBDynamic> _dynamic;
};
