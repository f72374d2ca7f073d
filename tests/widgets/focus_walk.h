// Walks a window with the keyboard as a person without a mouse would: Tab
// from the first control until the focus comes back round, then Shift+Tab
// the other way. Reports every control that took the focus without a name
// a screen reader could say, and every control that can take the focus but
// was never reached.
#pragma once

#include <QStringList>
#include <QWidget>

#include <vector>

namespace trovara::test {

struct FocusWalk {
    std::vector<QWidget*> forward;
    std::vector<QWidget*> backward;
    // Described as "Class objectName".
    QStringList unnamed;
    QStringList unreached;
    // The walk did not come back round within the step limit.
    bool endless = false;
};

// The name a screen reader says for the widget (its accessible name, or the
// text it shows).
QString spokenName(QWidget* widget);

// The window must be shown and active.
FocusWalk walkFocus(QWidget* window, int maximumSteps = 300);

}  // namespace trovara::test
