#include "ui/diarycommands.h"

#include "db/diarydb.h"
#include "db/lmsqldb.h"

#include <QMessageBox>

DiaryCommand::DiaryCommand(Kind kind, const QString &text, DiaryEdits::Entries before,
                           DiaryEdits::Entries after, std::function<void()> changed)
    : QUndoCommand(text)
    , _kind(kind)
    , _before(std::move(before))
    , _after(std::move(after))
    , _changed(std::move(changed))
{
}

void DiaryCommand::undo()
{
    apply(_after, &_before);
}

void DiaryCommand::redo()
{
    if (std::exchange(_done, false))
        return; // made before it was pushed
    apply(_before, &_after);
}

void DiaryCommand::apply(const DiaryEdits::Entries &leaving, DiaryEdits::Entries *coming)
{
    if (_kind == AddsAndRemoves) {
        DiaryEdits::swapEntries(leaving, coming);
    } else {
        const DiaryDB diary;
        LmWriteTransaction write;
        bool ok = write.isOpen();
        for (const FoodDiaryItem &food : coming->foods)
            ok = ok && diary.updateFoodEntry(food.food_id, food);
        for (const ExerciseDiaryItem &exercise : coming->exercises)
            ok = ok && diary.updateExerciseEntry(exercise);
        write.commit(ok);
    }
    _changed();
}

void DiaryUndoStack::record(DiaryCommand::Kind kind, const QString &text, DiaryEdits::Entries before,
                            DiaryEdits::Entries after)
{
    push(new DiaryCommand(kind, text, std::move(before), std::move(after), [this] { emit diaryChanged(); }));
    emit diaryChanged();
}

bool diaryWritten(QWidget *parent, bool ok)
{
    if (!ok)
        QMessageBox::warning(parent, QObject::tr("Diary"),
                             QObject::tr("The diary could not be written (%1). Nothing was changed.")
                                 .arg(LmSqlDb::lastErrorText()));
    return ok;
}
