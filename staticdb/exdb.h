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
    explicit ExDBDynamic(int user_id);

    bool exercise(int id, Exercise *exercise) const override;
    int categoryOf(int id) const;

    static int userRootId(int user_id);
    int addCategory(int parent, const QString &description, int id = -1);
    bool renameCategory(int id, const QString &description);
    bool moveCategory(int id, int parent);
    bool moveExercise(int id, int category);
    QString categoryDescription(int id) const;
    QList<QPair<int, QString>> exercisesOf(int category) const;
    QList<QPair<int, QString>> subcategories(int category) const;
    bool deleteCategory(int id);
    bool deleteExercise(int id);
    int addExercise(int category, const QString &description, float scale); // the new id, -1 on failure
    bool updateExercise(int id, const QString &description, float scale);

private:
    bool deleteCategoryRows(int id);
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
