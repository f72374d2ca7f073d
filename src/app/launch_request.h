// What one `trovara` command line asks for beyond opening files: a quick
// search for the primary selection (--quick-search), bringing Trovara to
// the front (--activate), or to the front with a new search
// (--activate-new), or its preferences (--preferences). These are the commands a desktop binds to its own
// keyboard shortcuts when Trovara's helper cannot register them.
//
// Like files and folders, the request goes to the Trovara that already
// runs (over its D-Bus service); when none runs, this process carries it
// out itself once it has launched.
#pragma once

#include <QDBusConnection>
#include <QString>
#include <QStringList>

namespace trovara::app {

class ApplicationDelegate;
class ScriptingService;

struct LaunchRequest {
    enum class Action {
        Open,        // the locations (may be none)
        QuickSearch, // the selection's text, in every field
        Activate,
        ActivateNew,
        ShowPreferences,
    };
    Action action = Action::Open;
    QStringList locations; // absolute paths and URLs
    QString selection;     // for QuickSearch

    // The command-line switches that name an action.
    static constexpr const char* kQuickSearchSwitch = "quick-search";
    static constexpr const char* kActivateSwitch = "activate";
    static constexpr const char* kActivateNewSwitch = "activate-new";
    static constexpr const char* kPreferencesSwitch = "preferences";

    enum class Handover {
        Forwarded,  // the running Trovara took it; this process ends
        Refused,    // nothing to do (an empty selection) or the running Trovara refused it: beep and end
        NoInstance, // no Trovara runs (or it does not answer): carry it out here
    };
    // Hands the request to the Trovara that owns the service name.
    Handover forward(QDBusConnection connection = QDBusConnection::sessionBus()) const;

    // Carries the request out in this process, after launching (the
    // locations were opened during launch). An empty selection beeps.
    void perform(ApplicationDelegate& delegate) const;
};

}  // namespace trovara::app
