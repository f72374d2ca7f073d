// Paths as a person writes them: "~" for the home folder.
#pragma once

#include <QString>

namespace trovara {

// "/home/ann/Documents/" becomes "~/Documents/"; the home folder itself
// becomes "~"; anything else is returned unchanged.
QString abbreviateWithTilde(const QString& path);

// "~" and "~/…" become paths in the home folder, "~user/…" in that user's;
// anything else (and an unknown user) is returned unchanged.
QString expandTilde(const QString& path);

}  // namespace trovara
