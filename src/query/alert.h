// An alert the core asks someone to show (in the application: a sheet on
// the document's window), without needing a window itself.
#pragma once

#include <QString>
#include <QStringList>

#include <functional>

namespace trovara::query {

struct Alert {
    QString messageText;
    QString informativeText;
    QStringList buttons;  // the first is the default
    // A warning about something that cannot be undone (shown with the
    // critical style).
    bool critical = false;
};

// Shows the alert and calls `didEnd` with the index of the button chosen
// once it is dismissed (at once or later).
using AlertPresenter = std::function<void(const Alert& alert, std::function<void(int button)> didEnd)>;

}  // namespace trovara::query
