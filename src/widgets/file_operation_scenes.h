// Screenshot scenes of file operations (see screenshots.h).
#pragma once

#include <QPixmap>

namespace trovara::widgets {

class DocumentWindow;

// A copy of the window's results, caught half-way.
QPixmap fileOperationProgressScene(DocumentWindow& window);
// A move of the window's results into a folder where the first name is
// taken: the sheet that asks about it (answered Stop afterwards).
QPixmap fileOperationConflictScene(DocumentWindow& window);

}  // namespace trovara::widgets
