#pragma once

// Changes to the diary as the Edit menu undoes and redoes them. Each is pushed after it has been
// made (its first redo does nothing); undo and redo go through the same editing operations the
// tool uses, then the day is drawn again.

#include "db/diaryedits.h"

#include <QUndoCommand>

#include <functional>

// Entries added and removed: logging, deleting, copying.
class EntriesCommand : public QUndoCommand
{
public:
    EntriesCommand(const QString &text, DiaryEdits::Entries removed, DiaryEdits::Entries added,
                   std::function<void()> changed);
    void undo() override;
    void redo() override;

private:
    DiaryEdits::Entries _removed;
    DiaryEdits::Entries _added;
    std::function<void()> _changed;
    bool _done = true;
};

// One entry changed in place: quantity, serving, meal or minutes.
class EntryUpdateCommand : public QUndoCommand
{
public:
    EntryUpdateCommand(const QString &text, DiaryEdits::Entries before, DiaryEdits::Entries after,
                       std::function<void()> changed);
    void undo() override;
    void redo() override;

private:
    DiaryEdits::Entries _before;
    DiaryEdits::Entries _after;
    std::function<void()> _changed;
    bool _done = true;
};
