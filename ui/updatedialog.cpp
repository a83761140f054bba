#include "ui/updatedialog.h"

#include "brand/brandengine.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"
#include "staticdb/staticdbupdater.h"

#include <QEventLoop>
#include <QMessageBox>
#include <QProgressDialog>

namespace Ui {

void runDatabaseUpdate(QWidget *parent, bool interactive)
{
    const BrandEngine *be = &BrandEngine::instance();
    LM_ASSERT(be->idExists(BRAND_STR_UPDATE_RSS_URL) && be->idExists(BRAND_BOOL_UPDATE_ENABLED) &&
              be->getBool(BRAND_BOOL_UPDATE_ENABLED));
    const QString caption = QStringLiteral("Database Updates");
    StaticDbUpdater updater;
    QEventLoop loop;
    QObject::connect(&updater, &StaticDbUpdater::checkFinished, &loop, &QEventLoop::quit);
    QObject::connect(&updater, &StaticDbUpdater::downloadFinished, &loop, &QEventLoop::quit);

    QProgressDialog checking(QStringLiteral("Checking for database updates"), QStringLiteral("Cancel"), 0, 0,
                             parent);
    checking.setWindowTitle(caption);
    checking.setWindowModality(Qt::WindowModal);
    checking.setMinimumDuration(0);
    QObject::connect(&checking, &QProgressDialog::canceled, &loop, [&] {
        updater.abort();
        loop.quit();
    });
    if (!updater.check())
        return;
    if (interactive)
        checking.show();
    loop.exec();
    checking.hide();
    if (updater.state() == StaticDbUpdater::Aborted)
        return;
    if (updater.state() == StaticDbUpdater::Failed) {
        QMessageBox::critical(parent, caption, updater.errorText());
        return;
    }
    if (updater.result() != StaticDbUpdater::UpdateAvailable) {
        if (interactive) {
            QMessageBox::information(
                parent, caption,
                updater.result() == StaticDbUpdater::UpToDate
                    ? QStringLiteral("Your databases are up to date.")
                : updater.hasMessage()
                    ? updater.message()
                    : QStringLiteral("Sorry, there are no database updates for your product"));
        }
        return;
    }
    if (QMessageBox::question(
            parent, caption,
            QStringLiteral("A newer food and exercise database is available.\n\nDownload and install "
                           "it now?")) != QMessageBox::Yes)
        return;
    if (!StaticDbUpdater::permissionTest()) {
        QMessageBox::warning(
            parent, caption,
            QStringLiteral("You do not have the required permissions to update the static databases. "
                           "Please contact your network administrator."));
        return;
    }
    QProgressDialog progress(QStringLiteral("Downloading database update..."), QStringLiteral("Cancel"), 0,
                             100, parent);
    progress.setWindowTitle(caption);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(0);
    QObject::connect(&progress, &QProgressDialog::canceled, &updater, &StaticDbUpdater::abort);
    QObject::connect(&updater, &StaticDbUpdater::downloadProgress, &progress, [&](int done, int total) {
        progress.setMaximum(std::max(total, 1));
        progress.setValue(std::min(done, progress.maximum()));
    });
    QObject::connect(&updater, &StaticDbUpdater::installProgress, &progress, [&](int done, int total) {
        progress.setLabelText(QStringLiteral("Installing database update..."));
        progress.setMaximum(std::max(total, 1));
        progress.setValue(std::min(done, progress.maximum())); // a decompressed file outgrows its total
    });
    if (!updater.download()) {
        if (updater.state() == StaticDbUpdater::Failed)
            QMessageBox::critical(parent, caption, updater.errorText());
        return;
    }
    loop.exec();
    progress.hide();
    if (updater.state() == StaticDbUpdater::Failed)
        QMessageBox::critical(parent, caption, updater.errorText());
    else if (updater.state() == StaticDbUpdater::Finished)
        QMessageBox::information(parent, caption,
                                 QStringLiteral("Your databases have been updated successfully."));
}

} // namespace Ui
