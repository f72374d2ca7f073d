// Shared pieces of the presentation tests: a fixed locale, and index
// records made in memory.
#pragma once

#include "index/fs/type_tree.h"
#include "index/item_attributes.h"
#include "index/live/item_ref.h"
#include "test_support.h"

#include <QLocale>

#include <memory>

namespace trovara::test {

// Makes the locale Qt reports the given one for the life of the object.
class ScopedLocale {
public:
    explicit ScopedLocale(const QLocale& locale)
        : m_previous(QLocale())
    {
        QLocale::setDefault(locale);
    }
    ~ScopedLocale() { QLocale::setDefault(m_previous); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    QLocale m_previous;
};

// Seconds since 1970 to the index's nanoseconds.
inline index::Nanoseconds unixSeconds(std::int64_t seconds)
{
    return seconds * 1000000000LL;
}

// The record of a regular file that exists only in memory.
struct FileRecord {
    std::string path;
    std::int64_t size = 0;
    index::Nanoseconds modified = unixSeconds(1235916300);  // 2009-03-01 14:05:00 UTC
    std::string mimeType = "text/plain";
    bool invisible = false;
    std::optional<std::string> comment = {};
    std::vector<std::string> tags = {};
    std::optional<int> label = {};
    bool folder = false;
};

inline index::ItemRef makeItem(const FileRecord& record)
{
    index::FileInfo info;
    info.name = record.path.substr(record.path.rfind('/') + 1);
    info.kind = record.folder ? index::FileKind::Directory : index::FileKind::Regular;
    info.size = record.size;
    info.modified = record.modified;
    info.changed = record.modified;
    info.born = record.modified;
    info.invisible = record.invisible;
    index::FileDetails details;
    details.mimeType = record.folder ? "inode/directory" : record.mimeType;
    details.attributes.comment = record.comment;
    details.attributes.tags = record.tags;
    details.attributes.label = record.label;
    return index::ItemRef(std::make_shared<index::FileFacts>(record.path, info, details,
                                                             index::describeMimeType(details.mimeType), 0));
}

}  // namespace trovara::test
