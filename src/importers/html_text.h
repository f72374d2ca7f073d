// The text a reader sees in an HTML page, for the HTML importer and for
// HTML inside e-mails and e-books.
//
// A forgiving reader, not a validator: tags are dropped (block-level ones
// separate words, inline ones do not), script, style and template content
// and comments are skipped, character references are resolved, and the
// title and the meta author, description and keywords are kept apart.
//
// Thread safety: pure functions.
#pragma once

#include "importers/importer.h"

#include <string>
#include <string_view>
#include <vector>

namespace trovara::importers {

struct HtmlFacts {
    std::string title;
    std::string author;
    std::string description;
    std::vector<std::string> keywords;
    std::string language;  // <html lang="…">
};

// Appends the visible text of `html` (UTF-8) to the sink, the title first.
HtmlFacts extractHtml(std::string_view html, ImportSink& sink);

// The charset the page declares in its first bytes (a meta charset, or the
// charset of a meta http-equiv Content-Type), if any.
std::string declaredHtmlCharset(std::string_view html);

// Resolves character references ("&amp;", "&#233;", "&#xE9;").
std::string decodeCharacterReferences(std::string_view text);

}  // namespace trovara::importers
