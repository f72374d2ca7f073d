// "Search in Trovara" in the common file managers: a Dolphin service menu,
// a Files (Nautilus) script, a Nemo action and a Thunar custom action, each
// running `trovara FOLDER…`, which opens one new search of the selected
// folders (in the running Trovara when there is one).
//
// The action files ship in share/trovara/file-manager; install() puts them
// where each file manager looks for a user's own actions.
#pragma once

#include "common/error.h"

#include <QString>
#include <QStringList>

namespace trovara::app {

class FileManagerActions {
public:
    static constexpr const char* kDolphinMenu = "com.velmont.Trovara.search.desktop";
    static constexpr const char* kNemoAction = "trovara-search.nemo_action";
    static constexpr const char* kNautilusScript = "search-in-trovara.sh";
    static constexpr const char* kThunarAction = "thunar-action.xml";
    static constexpr const char* kActionName = "Search in Trovara";
    static constexpr const char* kThunarActionId = "com.velmont.Trovara.search-in";

    // The shipped action files (the first resource folder that has them).
    static QString sourceFolder();

    // Installs the four actions for the user whose data and configuration
    // folders are given (~/.local/share and ~/.config). Thunar's list of
    // custom actions keeps every other action, and is replaced only once
    // the new list is completely written. Installing again changes nothing.
    // Answers the files written.
    static Result<QStringList> install(const QString& sourceFolder, const QString& dataHome,
                                       const QString& configHome);
    // The same for this user.
    static Result<QStringList> installForUser();
};

}  // namespace trovara::app
