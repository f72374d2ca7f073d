// Paths as a person writes them: "~" for the home folder.
#pragma once

#include <QString>

#include <string>
#include <string_view>

namespace trovara {

// "/home/ann/Documents/" becomes "~/Documents/"; the home folder itself
// becomes "~"; anything else is returned unchanged.
QString abbreviateWithTilde(const QString& path);

// "~" and "~/…" become paths in the home folder, "~user/…" in that user's;
// anything else (and an unknown user) is returned unchanged.
QString expandTilde(const QString& path);

// File names and command-line arguments are bytes, which a QString holds
// only when they are UTF-8 (decoding anything else as the locale's 8-bit
// text replaces it, and the file is lost). These carry each byte that is not
// part of valid UTF-8 as a lone surrogate, U+DC80 to U+DCFF, so that any
// name goes through a QString and comes back byte for byte:
// localBytes(fromLocalBytes(b)) == b.
QString fromLocalBytes(std::string_view bytes);
std::string localBytes(const QString& text);

}  // namespace trovara
