// Shared pieces of the query tests: a document of the tests' own, results
// made from in-memory index records, and the reads of records counted.
#pragma once

#include "model/document_model.h"
#include "presentation/column_formatters.h"
#include "presentation_test_support.h"
#include "query/query_document.h"
#include "query/result_item.h"

#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace trovara::test {

// Column attributes choose their formatters while the object lives; make
// it before any document whose columns the test looks at.
class ColumnChooserInstalled {
public:
    ColumnChooserInstalled() { presentation::installColumnPropertiesChooser(); }
    ~ColumnChooserInstalled() { model::ColumnAttribute::setPropertiesChooser({}); }
    ColumnChooserInstalled(const ColumnChooserInstalled&) = delete;
    ColumnChooserInstalled& operator=(const ColumnChooserInstalled&) = delete;
};

class TestDocument final : public query::QueryDocument {
public:
    explicit TestDocument(bool primed = true)
    {
        if (primed) {
            model::primeContext(*context);
        }
    }
    store::ManagedObjectContext& managedObjectContext() override { return *context; }

    std::unique_ptr<store::ManagedObjectContext> context = model::makeDocumentContext();
};

inline std::shared_ptr<query::ResultItem> makeResult(const FileRecord& record, query::QueryDocument* document = nullptr)
{
    return std::make_shared<query::ResultItem>(makeItem(record), document);
}

// Counts the reads of records by key for the life of the object; keys in
// `failing` throw instead, and keys in `missing` have no value.
class CountedReads {
public:
    CountedReads()
    {
        query::ResultItem::setAttributeReaderForTesting(
            [this](const index::ItemRef& item, std::string_view key) -> std::optional<index::query::AttributeValue> {
                ++reads[std::string(key)];
                if (failing.count(std::string(key))) {
                    throw std::runtime_error("the record is gone");
                }
                if (missing.count(std::string(key))) {
                    return std::nullopt;
                }
                return item.attribute(key);
            });
    }
    ~CountedReads() { query::ResultItem::setAttributeReaderForTesting({}); }
    CountedReads(const CountedReads&) = delete;
    CountedReads& operator=(const CountedReads&) = delete;

    std::map<std::string, int> reads;
    std::set<std::string> failing;
    std::set<std::string> missing;
};

}  // namespace trovara::test
