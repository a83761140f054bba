#pragma once

// Message boxes raised below the user interface (database start-up, updates, publishing).
// The desktop program installs a presenter that shows real boxes; without one (the command-line
// tool, tests) a box is written to standard error as "caption: text" and a question takes its
// default answer.

#include <QString>

namespace Lm {

enum class MessageKind { Information, Warning, Critical };

struct MessagePresenter
{
    virtual ~MessagePresenter() = default;
    virtual void showMessage(MessageKind kind, const QString &caption, const QString &text) = 0;
    // True for Yes. defaultYes is the answer a non-interactive presenter gives.
    virtual bool askQuestion(const QString &caption, const QString &text, bool defaultYes) = 0;
};

// The presenter stays owned by the caller; nullptr restores the standard-error presenter.
// Returns the previous presenter (nullptr for the default).
MessagePresenter *setMessagePresenter(MessagePresenter *presenter);

void showMessage(MessageKind kind, const QString &caption, const QString &text);
bool askQuestion(const QString &caption, const QString &text, bool defaultYes);

} // namespace Lm
