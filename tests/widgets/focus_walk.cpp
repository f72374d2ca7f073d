#include "focus_walk.h"

#include <QAccessible>
#include <QApplication>
#include <QTest>

#include <algorithm>

namespace trovara::test {

namespace {

QString describe(QWidget* widget)
{
    return QString::fromLatin1(widget->metaObject()->className()) + QLatin1Char(' ') + widget->objectName();
}

// Controls that the keyboard should be able to reach: they take the focus
// by Tab, are shown and enabled, and do not hand the focus on.
std::vector<QWidget*> tabStops(QWidget* window)
{
    std::vector<QWidget*> stops;
    for (QWidget* widget : window->findChildren<QWidget*>()) {
        if ((widget->focusPolicy() & Qt::TabFocus) && widget->isVisibleTo(window) && widget->isEnabled()
            && !widget->focusProxy() && widget->window() == window) {
            stops.push_back(widget);
        }
    }
    return stops;
}

std::vector<QWidget*> walk(QWidget* window, bool forward, int maximumSteps, bool* endless)
{
    std::vector<QWidget*> visited;
    QWidget* start = QApplication::focusWidget();
    for (int step = 0; step < maximumSteps; ++step) {
        QWidget* focus = QApplication::focusWidget();
        QTest::keyClick(focus ? focus : window, Qt::Key_Tab, forward ? Qt::NoModifier : Qt::ShiftModifier);
        QWidget* now = QApplication::focusWidget();
        if (!now || now == start) {
            return visited;
        }
        if (std::find(visited.begin(), visited.end(), now) != visited.end()) {
            // A cycle that does not pass the start: stop there.
            return visited;
        }
        visited.push_back(now);
    }
    *endless = true;
    return visited;
}

}  // namespace

QString spokenName(QWidget* widget)
{
    if (!widget->accessibleName().isEmpty()) {
        return widget->accessibleName();
    }
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
    return accessible ? accessible->text(QAccessible::Name) : QString();
}

FocusWalk walkFocus(QWidget* window, int maximumSteps)
{
    FocusWalk result;
    if (!QApplication::focusWidget() || QApplication::focusWidget()->window() != window) {
        const std::vector<QWidget*> stops = tabStops(window);
        if (!stops.empty()) {
            stops.front()->setFocus(Qt::TabFocusReason);
        }
    }
    QWidget* start = QApplication::focusWidget();
    result.forward = walk(window, true, maximumSteps, &result.endless);
    if (start && std::find(result.forward.begin(), result.forward.end(), start) == result.forward.end()) {
        result.forward.insert(result.forward.begin(), start);
    }
    result.backward = walk(window, false, maximumSteps, &result.endless);

    std::vector<QWidget*> reached = result.forward;
    reached.insert(reached.end(), result.backward.begin(), result.backward.end());
    for (QWidget* widget : reached) {
        if (spokenName(widget).trimmed().isEmpty() && !result.unnamed.contains(describe(widget))) {
            result.unnamed << describe(widget);
        }
    }
    for (QWidget* stop : tabStops(window)) {
        if (std::find(reached.begin(), reached.end(), stop) == reached.end()) {
            result.unreached << describe(stop);
        }
    }
    return result;
}

}  // namespace trovara::test
