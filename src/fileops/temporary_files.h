// Uniquely named temporary files in a private folder of this process: a
// caller gets a path to write to that no other caller (of this or another
// process) is given.
//
// temporaryFile(name) uses the folder "PROCESS_VMTemporary" in the system's
// temporary folder, creates it when needed, and gives
// temporaryFile(name, withinDirectory) for it: the path of `name` inside a
// new unique subfolder (twelve random characters). Nothing is created at
// the returned path itself.
//
// Thread safety: any thread.
#pragma once

#include <QString>

namespace trovara::fileops {

class TemporaryFiles {
public:
    static QString temporaryFile(const QString& name);
    // Empty when the folders cannot be created.
    static QString temporaryFile(const QString& name, const QString& withinDirectory);
    // The folder with an unused twelve-character name appended; not
    // created.
    static QString temporaryPathWithinDirectory(const QString& directory);
    // The private folder of this process.
    static QString privateFolder();
};

}  // namespace trovara::fileops
