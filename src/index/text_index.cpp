#include "index/text_index.h"

#include "index/text/encoding.h"

#include <algorithm>
#include <map>
#include <sys/stat.h>

namespace trovara::index {

namespace {

// A term as an FTS5 string: quoted, quotes doubled.
std::string quoted(std::string_view term)
{
    std::string out = "\"";
    for (const char c : term) {
        out += c;
        if (c == '"') {
            out += '"';
        }
    }
    return out + "\"";
}

constexpr std::size_t kTermsPerQuery = 200;

}  // namespace

Expected<std::unique_ptr<TextIndex>> TextIndex::open(const std::string& databasePath)
{
    Expected<std::unique_ptr<Store>> store = Store::open(databasePath, Store::Mode::ReadOnly);
    if (!store) {
        return store.error();
    }
    return std::unique_ptr<TextIndex>(new TextIndex(std::move(*store)));
}

TextIndex* TextIndex::forThisThread(const std::string& databasePath)
{
    struct Entry {
        std::unique_ptr<TextIndex> index;
        dev_t device = 0;
        ino_t inode = 0;
    };
    thread_local std::map<std::string, Entry> open;
    struct stat st {};
    if (databasePath.empty() || ::stat(databasePath.c_str(), &st) != 0) {
        return nullptr;
    }
    Entry& entry = open[databasePath];
    if (!entry.index || entry.device != st.st_dev || entry.inode != st.st_ino) {
        Expected<std::unique_ptr<TextIndex>> opened = TextIndex::open(databasePath);
        entry.index = opened ? std::move(*opened) : nullptr;
        entry.device = st.st_dev;
        entry.inode = st.st_ino;
    }
    return entry.index.get();
}

Expected<std::optional<std::string>> TextIndex::text(std::int64_t item)
{
    Expected<std::optional<StoredText>> stored = m_store->storedText(item);
    if (!stored) {
        return stored.error();
    }
    if (!*stored) {
        return std::optional<std::string>();
    }
    if ((*stored)->copy) {
        return std::optional<std::string>(std::move((*stored)->copy));
    }
    // Read back from the file as the plain text importer read it.
    Expected<std::string> path = m_store->itemPath(item);
    if (!path) {
        return path.error();
    }
    Expected<text::DecodedText> read = text::readTextFile(*path, static_cast<std::size_t>((*stored)->bytes));
    if (!read) {
        return std::optional<std::string>();  // gone or unreadable now: no text to match
    }
    return std::optional<std::string>(std::move(read->text));
}

Expected<std::vector<std::int64_t>> TextIndex::itemsWithTerm(std::string_view term)
{
    return m_store->textMatches(quoted(term));
}

Expected<std::vector<std::int64_t>> TextIndex::itemsWithTermStartingWith(std::string_view prefix)
{
    return m_store->textMatches(quoted(prefix) + "*");
}

Expected<std::vector<std::int64_t>> TextIndex::itemsWithTermContaining(const std::vector<std::string>& parts)
{
    std::vector<std::string> terms;
    Expected<void> read = m_store->forEachTextTerm([&](std::string_view term) {
        if (std::all_of(parts.begin(), parts.end(),
                        [&](const std::string& part) { return term.find(part) != std::string_view::npos; })) {
            terms.emplace_back(term);
        }
        return true;
    });
    if (!read) {
        return read.error();
    }
    std::vector<std::int64_t> ids;
    for (std::size_t first = 0; first < terms.size(); first += kTermsPerQuery) {
        std::string query;
        for (std::size_t i = first; i < std::min(terms.size(), first + kTermsPerQuery); ++i) {
            query += (query.empty() ? "" : " OR ") + quoted(terms[i]);
        }
        Expected<std::vector<std::int64_t>> found = m_store->textMatches(query);
        if (!found) {
            return found.error();
        }
        ids.insert(ids.end(), found->begin(), found->end());
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

Expected<std::vector<std::int64_t>> TextIndex::itemsWithText()
{
    return m_store->itemsWithText();
}

}  // namespace trovara::index
