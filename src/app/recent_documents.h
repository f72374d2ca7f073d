// The Open Recent list: the search files opened or saved lately, most
// recent first, kept in the user defaults under "recentDocuments".
//
// A file that no longer exists is dropped when the list is read; a file
// noted again moves to the front. Meant for the main thread.
#pragma once

#include <QString>
#include <QStringList>

namespace trovara::app {

class RecentDocuments {
public:
    static constexpr const char* kDefaultsKey = "recentDocuments";
    static constexpr int kMaximumCount = 10;

    // The existing files of the list, most recent first.
    static QStringList paths();
    // Puts an absolute form of the path at the front.
    static void noteDocument(const QString& path);
    static void clear();
};

}  // namespace trovara::app
