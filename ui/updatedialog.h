#pragma once

// The reference database update as the user sees it: checking (with Cancel), the answer, the
// question whether to download, the download and install progress, the outcome.

class QWidget;

namespace Ui {

// interactive false: no checking box, and "up to date" or "no updates" end without a box.
void runDatabaseUpdate(QWidget *parent, bool interactive);

} // namespace Ui
