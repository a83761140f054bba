#pragma once

// A change to the diary as the Edit menu undoes and redoes it. It is pushed after it has been
// made (its first redo does nothing); undo and redo go through the same editing operations the
// tool uses, then changed() draws the day again.

#include "db/diaryedits.h"

#include <QUndoCommand>
#include <QUndoStack>

#include <functional>

class DiaryCommand : public QUndoCommand
{
public:
    // Entries removed (before) and added (after): logging, deleting, copying; or entries changed
    // in place from before to after: quantity, serving, meal, minutes.
    enum Kind { AddsAndRemoves, Updates };

    DiaryCommand(Kind kind, const QString &text, DiaryEdits::Entries before, DiaryEdits::Entries after,
                 std::function<void()> changed);
    void undo() override;
    void redo() override;

private:
    void apply(const DiaryEdits::Entries &leaving, DiaryEdits::Entries *coming);

    Kind _kind;
    DiaryEdits::Entries _before;
    DiaryEdits::Entries _after;
    std::function<void()> _changed;
    bool _done = true;
};

// The day's changes, made by the day's tree and the browser: each is recorded once it is made, and
// diaryChanged follows it as it follows every undo and redo.
class DiaryUndoStack : public QUndoStack
{
    Q_OBJECT

public:
    using QUndoStack::QUndoStack;
    void record(DiaryCommand::Kind kind, const QString &text, DiaryEdits::Entries before,
                DiaryEdits::Entries after);

signals:
    void diaryChanged();
};

// Shows why when a change could not be stored; ok as it came.
bool diaryWritten(class QWidget *parent, bool ok);
