#include "ui/publishdialog.h"

#include "app/webserver.h"
#include "brand/brandengine.h"
#include "net/publish.h"

#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace {

const char *const kStepNames[] = {"Connecting", "Sending", "Reading", "Disconnecting", "Done"};

QPixmap mark(const char *id)
{
    return BrandEngine::instance().getPixmap(QLatin1String(id));
}

} // namespace

PublishProgressDialog::PublishProgressDialog(QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("publish progress dialog"));
    setProperty("helpPage", QStringLiteral("publishing"));
    setWindowTitle(QStringLiteral("Publish Diary"));
    setModal(true);
    const QString address = WebServer::address(QStringLiteral("web_address"));
    auto *heading = new QLabel(QStringLiteral("<b>Please wait while we publish your entries to ") +
                                   address.toHtmlEscaped() + QStringLiteral("</b>"),
                               this);
    auto *steps = new QGridLayout;
    for (int i = 0; i < 5; ++i) {
        _marks[i] = new QLabel(this);
        _marks[i]->setFixedWidth(24);
        _texts[i] = new QLabel(QLatin1String(kStepNames[i]), this);
        _texts[i]->setObjectName(QStringLiteral("step%1").arg(i));
        _texts[i]->setEnabled(false);
        steps->addWidget(_marks[i], i, 0);
        steps->addWidget(_texts[i], i, 1);
    }
    _status = new QLabel(this);
    _status->setObjectName(QStringLiteral("status"));
    _progress = new QProgressBar(this);
    _button = new QPushButton(QStringLiteral("Cancel"), this);
    _button->setObjectName(QStringLiteral("button"));
    connect(_button, &QPushButton::clicked, this, [this] { _finished ? accept() : reject(); });
    _countdown = new QTimer(this);
    _countdown->setInterval(1000);
    connect(_countdown, &QTimer::timeout, this, [this] {
        if (--_secondsLeft < 1) {
            accept();
            return;
        }
        _button->setText(QStringLiteral("OK (%1)").arg(_secondsLeft));
    });
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addLayout(steps);
    layout->addWidget(_status);
    layout->addWidget(_progress);
    layout->addWidget(_button, 0, Qt::AlignRight);
}

QString PublishProgressDialog::publish(int user_id)
{
    LmPublish publisher(user_id);
    QString result;
    connect(&publisher, &LmPublish::stepChanged, this, &PublishProgressDialog::setStep);
    connect(&publisher, &LmPublish::statusTextChanged, _status, &QLabel::setText);
    connect(&publisher, &LmPublish::finished, this, [this, &result](const QString &text) {
        result = text;
        finish(text);
    });
    connect(publisher.http(), &LmHttp::dataSendProgress, this, &PublishProgressDialog::updateProgress);
    if (!publisher.publish())
        return QString();
    if (exec() == QDialog::Rejected && result.isEmpty())
        publisher.cancel();
    return result;
}

void PublishProgressDialog::updateProgress(int done, int total)
{
    // The bar reaches its end only when the whole publish has.
    _progress->setMaximum(std::max(total, 1));
    _progress->setValue(done == total ? done - 1 : done);
}

void PublishProgressDialog::setStep(int step, bool ok, const QString &text)
{
    if (step < 0 || step > 4)
        return;
    _texts[step]->setEnabled(true);
    if (!text.isEmpty())
        _texts[step]->setText(text);
    _marks[step]->setPixmap(mark(ok ? "graphics.icon.tick" : "graphics.icon.cross"));
}

void PublishProgressDialog::finish(const QString &result)
{
    _finished = true;
    _progress->setMaximum(100);
    _progress->setValue(100);
    if (result == QLatin1String("Completed successfully")) {
        _secondsLeft = 5;
        _button->setText(QStringLiteral("OK (5)"));
        _countdown->start();
    } else {
        _button->setText(QStringLiteral("OK"));
    }
}
