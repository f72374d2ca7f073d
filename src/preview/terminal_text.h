// A preview's text for a terminal: the coloured ranges drawn with ANSI
// escapes (bold, in each highlight colour's entry of the xterm 256-colour
// palette), so that `trova preview` shows what the panel shows.
//
// Thread safety: pure function.
#pragma once

#include "preview/search_term_matcher.h"

#include <QString>

#include <vector>

namespace trovara::preview {

// The text with each match wrapped in its term's colour; ranges outside the
// text are ignored.
QString colorizeForTerminal(const QString& text, const std::vector<TermMatch>& matches);

}  // namespace trovara::preview
