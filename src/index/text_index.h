// Reading the full text of an index: the text of one file, and the files
// whose text holds a word (a prefilter for the evaluator, see
// text_tokens.h), over a read-only connection to the index database.
//
// Thread safety: a TextIndex belongs to one thread. forThisThread() keeps
// one per thread and database, and opens it again when the database was
// replaced (a rebuild), so callers on any thread simply ask for it.
#pragma once

#include "index/expected.h"
#include "index/store.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

class TextIndex {
public:
    static Expected<std::unique_ptr<TextIndex>> open(const std::string& databasePath);
    // This thread's connection to the database; none when it cannot be
    // opened (no index yet, or a damaged one).
    static TextIndex* forThisThread(const std::string& databasePath);

    // The file's text content, if it has one: the copy the index keeps, or,
    // for plain text (whose copy it does not keep), the file read again.
    Expected<std::optional<std::string>> text(std::int64_t item);

    // Ids (ascending) of the files with a term equal to `term`, or beginning
    // with `prefix` (both folded as terms are; see text_tokens.h).
    Expected<std::vector<std::int64_t>> itemsWithTerm(std::string_view term);
    Expected<std::vector<std::int64_t>> itemsWithTermStartingWith(std::string_view prefix);
    // Ids of the files with a term that contains every one of `parts`.
    Expected<std::vector<std::int64_t>> itemsWithTermContaining(const std::vector<std::string>& parts);
    // Ids of every file with text content.
    Expected<std::vector<std::int64_t>> itemsWithText();

private:
    explicit TextIndex(std::unique_ptr<Store> store)
        : m_store(std::move(store))
    {
    }
    std::unique_ptr<Store> m_store;
};

}  // namespace trovara::index
