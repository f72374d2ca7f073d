// How results are ordered: by the value at a key (an attribute key, or
// "key.@firstObject" for the first value of a list), ascending or
// descending, with either the default comparison or the locale-aware,
// case-insensitive comparison of texts.
//
// A document keeps its sort order as an archive (see
// docs/format/document.md, setting "sortDescriptor"); archive() and
// unarchive() are the only code that writes and reads that form.
#pragma once

#include "store/managed_object.h"
#include "store/predicate.h"

#include <QByteArray>
#include <QCollatorSortKey>
#include <QString>
#include <QVariant>

#include <optional>
#include <vector>

namespace trovara::presentation {

struct SortDescriptor {
    enum class Comparison {
        Default,                   // numbers and dates by value, texts code unit by code unit
        LocalizedCaseInsensitive,  // texts as the user's locale orders them, ignoring case
    };

    QString key;
    bool ascending = true;
    Comparison comparison = Comparison::Default;

    bool operator==(const SortDescriptor&) const = default;

    // Negative, zero or positive as a sorts before, with or after b in this
    // order. No value sorts before every value (after them, descending).
    int compare(const QVariant& a, const QVariant& b) const;

    // The same order for the object store's fetches.
    store::SortDescriptor toStoreSortDescriptor() const;

    static QByteArray archive(const std::vector<SortDescriptor>& descriptors);
    // None when the bytes are not an archive this version can read.
    static std::optional<std::vector<SortDescriptor>> unarchive(const QByteArray& bytes);
};

// Locale-aware, case-insensitive comparison of two texts (the user's
// locale as Qt gives it). A locale without collation rules (C, POSIX)
// orders the case-folded texts by code point.
int localizedCaseInsensitiveCompare(const QString& a, const QString& b);

// A text's place in that order, made once and compared often (sorting).
// Keys are comparable only when made under the same locale: keep them with
// the collation generation they were made in.
class LocalizedSortKey {
public:
    explicit LocalizedSortKey(const QString& text);
    int compare(const LocalizedSortKey& other) const;

    // Changes whenever the user's locale (and with it the order) changes.
    static quint64 currentGeneration();

private:
    std::optional<QCollatorSortKey> m_collated;
    QByteArray m_folded;
};

}  // namespace trovara::presentation
