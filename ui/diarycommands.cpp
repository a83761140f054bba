#include "ui/diarycommands.h"

#include "db/diarydb.h"
#include "db/lmsqldb.h"

namespace {

bool update(const DiaryEdits::Entries &entries)
{
    const DiaryDB diary;
    LmWriteTransaction write;
    bool ok = write.isOpen();
    for (const FoodDiaryItem &food : entries.foods)
        ok = ok && diary.updateFoodEntry(food.food_id, food);
    for (const ExerciseDiaryItem &exercise : entries.exercises)
        ok = ok && diary.updateExerciseEntry(exercise);
    return write.commit(ok);
}

} // namespace

EntriesCommand::EntriesCommand(const QString &text, DiaryEdits::Entries removed, DiaryEdits::Entries added,
                               std::function<void()> changed)
    : QUndoCommand(text)
    , _removed(std::move(removed))
    , _added(std::move(added))
    , _changed(std::move(changed))
{
}

void EntriesCommand::undo()
{
    DiaryEdits::swapEntries(_added, &_removed);
    _changed();
}

void EntriesCommand::redo()
{
    if (std::exchange(_done, false))
        return; // made before it was pushed
    DiaryEdits::swapEntries(_removed, &_added);
    _changed();
}

EntryUpdateCommand::EntryUpdateCommand(const QString &text, DiaryEdits::Entries before,
                                       DiaryEdits::Entries after, std::function<void()> changed)
    : QUndoCommand(text)
    , _before(std::move(before))
    , _after(std::move(after))
    , _changed(std::move(changed))
{
}

void EntryUpdateCommand::undo()
{
    update(_before);
    _changed();
}

void EntryUpdateCommand::redo()
{
    if (std::exchange(_done, false))
        return;
    update(_after);
    _changed();
}
