#pragma once

// Real message boxes for the messages raised below the user interface, and the "Fatal Error" box.

namespace Ui {

// Installs the box presenter and the fatal display; call once the QApplication exists.
void installMessageBoxes();

} // namespace Ui
