// Query text for `trova find`: what a person types becomes a query.
//
// A QUERY argument that parses as an expression (and compares something)
// is taken as written. Anything else, and everything with -interpret, is
// read as plain words the way a person means them: each blank-separated
// word w becomes (* = "w*"cdw || kMDItemTextContent = "w*"cdw) — a word of
// any text attribute or of the text, beginning with w, in any case and with
// or without accents — and the words are ANDed. -name TEXT adds
// kMDItemFSName == "*TEXT*"cd.
//
// Words and names are escaped, so quotes, backslashes, "*" and "?" in them
// are searched for literally. Thread safety: reentrant.
#pragma once

#include "index/expected.h"

#include <optional>
#include <string>
#include <string_view>

namespace trovara::index::query {

// `text` for use inside double quotes, with everything the language treats
// specially there (quote, backslash, "*" and "?") escaped.
std::string escaped(std::string_view text);

// The query for plain words; empty when `words` holds only blanks.
std::string interpretWords(std::string_view words);

// kMDItemFSName == "*TEXT*"cd, for -name TEXT.
std::string nameQuery(std::string_view name);

// Whether `input` parses as an expression that compares at least one
// attribute (a lone "true" or "false" is a word a person searches for).
bool isQueryExpression(std::string_view input);

struct FindQuery {
    std::string text;
    bool interpreted = false;  // the QUERY argument was read as plain words
};

// The whole query of `trova find`: QUERY (as an expression or as words;
// always as words when `interpret` is set), ANDed with -name when given.
// Input with an operator of the language ("==", "<", "&&" …) is meant as an
// expression: when it does not parse, that is the error, not a word search.
// Fails (InvalidQuery) when there is nothing to search for.
Expected<FindQuery> findQuery(std::string_view query, const std::optional<std::string>& name, bool interpret);

}  // namespace trovara::index::query
