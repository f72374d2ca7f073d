// A new search document with its four editors loaded, as a window has them,
// over a source without an index (its queries find nothing; the tests look
// at the query text and the document's graph).
#pragma once

#include "document/document.h"
#include "editors/document_editors.h"
#include "model/abstract_attribute.h"
#include "model/criteria_json.h"
#include "model/defaults.h"
#include "model/document_model.h"
#include "model/query_item.h"
#include "model/query_leaf.h"
#include "presentation/column_formatters.h"
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>

#include <gtest/gtest.h>

#include <memory>

namespace trovara::test {

class EditorsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/editors-test.conf"));
        presentation::installColumnPropertiesChooser();
        document = std::make_unique<document::Document>(source);
        ASSERT_TRUE(document->initWithType().ok());
        document->windowControllerDidLoadNib();
        editors = std::make_unique<editors::DocumentEditors>(*document);
        editors->loadEditors();
        settle();
    }

    void TearDown() override
    {
        editors.reset();
        document.reset();
        QCoreApplication::sendPostedEvents();
        model::ColumnAttribute::setPropertiesChooser({});
        model::Defaults::resetSharedForTesting();
    }

    // Runs what waits for the next turn of the event loop.
    static void settle()
    {
        for (int i = 0; i < 4; ++i) {
            QCoreApplication::sendPostedEvents();
        }
    }

    editors::RuleEditorModel& criteria() { return editors->predicateEditor(); }
    store::ManagedObjectContext& context() { return document->managedObjectContext(); }
    model::QueryNode* root() { return model::QueryNode::rootNodeInContext(context()); }

    // The expression the document handed to its query.
    QString queryText() const { return document->metadataQueryController()->expression(); }

    // The query text of the document's tree as `trova criteria-text` writes
    // it: the tree written as JSON, read into a fresh graph.
    QString criteriaText()
    {
        const QByteArray json = model::writeCriteriaJson(*root());
        std::unique_ptr<store::ManagedObjectContext> fresh = model::makeDocumentContext();
        Result<model::QueryNode*> read = model::readCriteriaJson(json, *fresh);
        EXPECT_TRUE(read.ok()) << json.toStdString();
        return read ? read.value()->expression() : QString();
    }

    // The first criteria line on the attribute (-1 when there is none).
    int lineOf(const QString& key)
    {
        for (int row = 0; row < criteria().numberOfRows(); ++row) {
            editors::RowPtr line = criteria().rowAtIndex(row);
            const auto* attribute =
                line->criteria.empty() ? nullptr : line->criteria.front().object<model::QueryAttribute>();
            if (!line->isCompound() && attribute && attribute->attributeKey() == key) {
                return row;
            }
        }
        return -1;
    }

    model::QueryLeaf* leafOf(int row) { return store::object_cast<model::QueryLeaf>(criteria().rowAtIndex(row)->item); }

    // Chooses the choice shown with the title at a position of a line.
    static bool choose(editors::RuleEditorModel& editor, int row, int position, const QString& title)
    {
        const QStringList titles = editor.choiceTitlesAt(row, position);
        const int index = static_cast<int>(titles.indexOf(title));
        EXPECT_GE(index, 0) << title.toStdString() << " among " << titles.join(QStringLiteral(", ")).toStdString();
        return index >= 0 && editor.chooseCriterion(row, position, index);
    }

    editors::RuleValueField* fieldOf(int row) { return criteria().rowAtIndex(row)->shownField(); }

    ::testing::AssertionResult consistent()
    {
        QString why;
        if (!editors->isConsistent(&why)) {
            return ::testing::AssertionFailure() << why.toStdString();
        }
        return ::testing::AssertionSuccess();
    }

    index::NoIndexSource source;
    std::unique_ptr<document::Document> document;
    std::unique_ptr<editors::DocumentEditors> editors;
};

}  // namespace trovara::test
