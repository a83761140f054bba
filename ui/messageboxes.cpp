#include "ui/messageboxes.h"

#include "app/messagehandler.h"
#include "common/lmmessage.h"

#include <QApplication>
#include <QMessageBox>

namespace Ui {
namespace {

class BoxPresenter final : public Lm::MessagePresenter
{
public:
    void showMessage(Lm::MessageKind kind, const QString &caption, const QString &text) override
    {
        QWidget *parent = QApplication::activeWindow();
        switch (kind) {
        case Lm::MessageKind::Information:
            QMessageBox::information(parent, caption, text);
            break;
        case Lm::MessageKind::Warning:
            QMessageBox::warning(parent, caption, text);
            break;
        case Lm::MessageKind::Critical:
            QMessageBox::critical(parent, caption, text);
            break;
        }
    }

    bool askQuestion(const QString &caption, const QString &text, bool defaultYes) override
    {
        const auto answer = QMessageBox::question(QApplication::activeWindow(), caption, text,
                                                  QMessageBox::Yes | QMessageBox::No,
                                                  defaultYes ? QMessageBox::Yes : QMessageBox::No);
        return answer == QMessageBox::Yes;
    }
};

void showFatal(const QString &message)
{
    if (qApp)
        QMessageBox::warning(nullptr, QStringLiteral("Fatal Error"), message);
}

} // namespace

void installMessageBoxes()
{
    static BoxPresenter presenter;
    Lm::setMessagePresenter(&presenter);
    Lm::setFatalDisplay(showFatal);
}

} // namespace Ui
