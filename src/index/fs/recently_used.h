// When the user last opened a file, as desktop applications record it in
// the freedesktop recently-used list ($XDG_DATA_HOME/recently-used.xbel):
// the source of kMDItemLastUsedDate, with the access time as the fallback.
//
// A RecentlyUsed is a plain value, immutable once built, so any number of
// threads may read it. It does not follow later changes of the file (read it
// again when the watcher reports one).
#pragma once

#include "index/expected.h"
#include "index/fs/file_info.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace trovara::index {

class RecentlyUsed {
public:
    RecentlyUsed() = default;

    // The list's location: $XDG_DATA_HOME/recently-used.xbel when that
    // variable holds an absolute path, else ~/.local/share/recently-used.xbel.
    static std::string defaultPath();

    // Parses the XML of a recently-used list: every <bookmark> with a
    // "file://" href and a "visited" time. Bookmarks of other schemes or
    // without a usable time are skipped; malformed XML fails with Corrupt
    // (and yields no entries at all: a half-read list is not trusted).
    static Expected<RecentlyUsed> parse(std::string_view xml);
    // Reads and parses the file; a missing or unreadable file fails with Io.
    static Expected<RecentlyUsed> read(const std::string& path);
    // The user's list; empty when there is none or it cannot be read.
    static RecentlyUsed load();

    // The last visit of the absolute path, if the list has it.
    std::optional<Nanoseconds> visited(const std::string& path) const;

    // kMDItemLastUsedDate: the list's visit when present, else the access
    // time when it is later than the modification time (the file was read
    // after it was last written), else none.
    std::optional<Nanoseconds> lastUsedDate(const std::string& path, const FileInfo& info) const;

    // Every path with its latest visit.
    const std::unordered_map<std::string, Nanoseconds>& visits() const { return m_visits; }

private:
    std::unordered_map<std::string, Nanoseconds> m_visits;
};

// Parses an ISO 8601 time as the list writes it ("2024-01-02T03:04:05.123456Z";
// an offset such as "+02:00" instead of "Z" is understood too).
std::optional<Nanoseconds> parseIsoTime(std::string_view text);

}  // namespace trovara::index
