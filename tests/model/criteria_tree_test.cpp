// Building and editing the criteria tree: the root group, adding rows and
// groups at positions, and rows that remember their values per attribute.
#include "common/error_presenter.h"
#include "model/abstract_attribute.h"
#include "model/document_model.h"
#include "model/query_leaf.h"
#include "model/value_transformer.h"

#include <QDateTime>

#include <gtest/gtest.h>

namespace trovara::model {
namespace {

class CriteriaTree : public ::testing::Test {
protected:
    CriteriaTree()
        : context(makeDocumentContext())
        , c(*context)
    {
        c.setAutomaticallyProcessesPendingChanges(false);
    }

    QueryAttribute* attribute(const char* key) { return QueryAttribute::attributeWithKey(QString::fromLatin1(key), c); }

    QueryLeaf* leaf(QueryNode* group, const char* key, int sortIndex)
    {
        auto* row = c.insert<QueryLeaf>();
        row->setQueryAttribute(attribute(key));
        row->setSortIndexValue(sortIndex);
        row->setParent(group);
        return row;
    }

    // "key@index" for each child in sort order; groups show their operator.
    static QStringList layout(const QueryNode* group)
    {
        QStringList items;
        for (const QueryItem* child : group->orderedChildren()) {
            const QString name = child->isLeaf()
                                     ? static_cast<const QueryLeaf*>(child)->queryAttribute()->attributeKey()
                                     : static_cast<const QueryNode*>(child)->operatorName();
            items << QStringLiteral("%1@%2").arg(name).arg(child->sortIndexValue());
        }
        return items;
    }

    std::unique_ptr<store::ManagedObjectContext> context;
    store::ManagedObjectContext& c;
};

TEST_F(CriteriaTree, TheRootIsMadeOnceAsAnAllGroup)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->operatorName(), QStringLiteral("AND"));
    EXPECT_EQ(root->sortIndexValue(), 0);
    EXPECT_EQ(root->parent(), nullptr);
    EXPECT_FALSE(root->isLeaf());
    EXPECT_EQ(QueryNode::rootNodeInContext(c), root);
    auto* inner = c.insert<QueryNode>();
    inner->setParent(root);
    EXPECT_EQ(QueryNode::rootNodeInContext(c), root);
}

TEST_F(CriteriaTree, AFailedFetchOfTheRootIsPresentedAndGivesNoRoot)
{
    c.injectFetchFailure(QStringLiteral("QueryItem"), Error::make(Error::kFetchError, QStringLiteral("broken")));
    std::vector<QString> presented;
    ErrorPresenter previous = setErrorPresenter([&](const Error& error) { presented.push_back(error.description); });
    EXPECT_EQ(QueryNode::rootNodeInContext(c), nullptr);
    setErrorPresenter(previous);
    EXPECT_EQ(presented, std::vector<QString>{QStringLiteral("broken")});
}

TEST_F(CriteriaTree, CreatingTheAbstractItemIsRefused)
{
    try {
        c.insertNewObject(QStringLiteral("QueryItem"));
        FAIL();
    } catch (const store::AbstractClassException& exception) {
        EXPECT_STREQ(exception.what(), "Error, attempting to instantiate QueryItem directly.");
    }
}

TEST_F(CriteriaTree, RowsOfAnAllGroupTakeAnAttributeNoSiblingUsesYet)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    // Available attributes sort by name: "Any text", "Kind"… here three.
    attribute("kMDItemKind");
    attribute("*");
    attribute("kMDItemFSSize");
    QueryLeaf* first = root->addRow();
    QueryLeaf* second = root->addRow();
    QueryLeaf* third = root->addRow();
    QueryLeaf* fourth = root->addRow();
    EXPECT_EQ(first->queryAttribute()->attributeKey(), QStringLiteral("*"));
    EXPECT_EQ(second->queryAttribute()->attributeKey(), QStringLiteral("kMDItemKind"));
    EXPECT_EQ(third->queryAttribute()->attributeKey(), QStringLiteral("kMDItemFSSize"));
    // All used: the name attribute (created when it is missing).
    EXPECT_EQ(fourth->queryAttribute()->attributeKey(), QStringLiteral("kMDItemDisplayName"));
    EXPECT_EQ(layout(root), QStringList({"*@0", "kMDItemKind@1", "kMDItemFSSize@2", "kMDItemDisplayName@3"}));
    // Each new row's operator is its attribute's first.
    EXPECT_EQ(first->queryOperator(), QVariant(QStringLiteral("containsFuzzy")));
    EXPECT_EQ(third->queryOperator(), QVariant(QStringLiteral("lessThan")));
}

TEST_F(CriteriaTree, RowsOfAnAnyGroupCopyTheAttributeOfTheRowTheyComeFrom)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    root->setOperatorName(QStringLiteral("OR"));
    QueryLeaf* size = leaf(root, "kMDItemFSSize", 0);
    leaf(root, "kMDItemKind", 1);
    QueryLeaf* added = size->addRow();
    EXPECT_EQ(added->queryAttribute()->attributeKey(), QStringLiteral("kMDItemFSSize"));
    EXPECT_EQ(layout(root), QStringList({"kMDItemFSSize@0", "kMDItemFSSize@1", "kMDItemKind@2"}));
    // From a group (not a row) or from nowhere: the name attribute.
    auto* inner = c.insert<QueryNode>();
    root->addLeaf(inner, true, -1);
    EXPECT_EQ(root->addRowFromIndex(inner->sortIndexValue())->queryAttribute()->attributeKey(),
              QStringLiteral("kMDItemDisplayName"));
    EXPECT_EQ(root->addRow()->queryAttribute()->attributeKey(), QStringLiteral("kMDItemDisplayName"));
}

TEST_F(CriteriaTree, AddingAfterARowMakesRoomBehindIt)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    root->setOperatorName(QStringLiteral("OR"));
    for (int i = 0; i < 5; ++i) {
        leaf(root, "kMDItemFSName", i);
    }
    QueryLeaf* added = root->addRowFromIndex(2);
    EXPECT_EQ(added->sortIndexValue(), 3);
    QList<int> indexes;
    for (QueryItem* child : root->orderedChildren()) {
        indexes << child->sortIndexValue();
    }
    EXPECT_EQ(indexes, QList<int>({0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(root->orderedChildren()[3], added);
}

TEST_F(CriteriaTree, InsertingBeforeOrAtTheEndAndMovingWithinAGroup)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    QueryLeaf* a = leaf(root, "kMDItemFSName", 0);
    QueryLeaf* b = leaf(root, "kMDItemKind", 1);
    QueryLeaf* x = c.insert<QueryLeaf>();
    x->setQueryAttribute(attribute("kMDItemFSSize"));
    root->addLeaf(x, false, 0);  // before the first
    EXPECT_EQ(layout(root), QStringList({"kMDItemFSSize@0", "kMDItemFSName@1", "kMDItemKind@2"}));
    QueryLeaf* y = c.insert<QueryLeaf>();
    y->setQueryAttribute(attribute("kMDItemPath"));
    root->addLeaf(y, true, -1);  // after the last
    EXPECT_EQ(layout(root),
              QStringList({"kMDItemFSSize@0", "kMDItemFSName@1", "kMDItemKind@2", "kMDItemPath@3"}));
    QueryLeaf* z = c.insert<QueryLeaf>();
    z->setQueryAttribute(attribute("kMDItemTitle"));
    root->addLeaf(z, false, -1);  // at the last
    EXPECT_EQ(layout(root), QStringList({"kMDItemFSSize@0", "kMDItemFSName@1", "kMDItemKind@2", "kMDItemTitle@3",
                                         "kMDItemPath@4"}));
    // Moving a child of the group closes its old gap first; the index then
    // counts in the closed-up order.
    root->addLeaf(x, true, 3);
    EXPECT_EQ(layout(root), QStringList({"kMDItemFSName@0", "kMDItemKind@1", "kMDItemTitle@2", "kMDItemPath@3",
                                         "kMDItemFSSize@4"}));

    (void)a;
    (void)b;
}

TEST_F(CriteriaTree, AddingToANoneGroupWrapsItsRowInAnAnyGroup)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    auto* none = c.insert<QueryNode>();
    none->setOperatorName(QStringLiteral("NOT"));
    root->addLeaf(none, true, -1);
    QueryLeaf* existing = leaf(none, "kMDItemFSName", 0);
    existing->setQueryString(QStringLiteral("tmp"));

    QueryLeaf* added = none->addRowFromIndex(0);
    ASSERT_EQ(none->children().size(), 1u);
    auto* any = dynamic_cast<QueryNode*>(none->children().front());
    ASSERT_NE(any, nullptr);
    EXPECT_EQ(any->operatorName(), QStringLiteral("OR"));
    EXPECT_EQ(any->sortIndexValue(), 0);
    EXPECT_EQ(existing->parent(), any);
    EXPECT_EQ(added->parent(), any);
    EXPECT_EQ(any->orderedChildren(), (std::vector<QueryItem*>{existing, added}));
    EXPECT_EQ(added->queryAttribute()->attributeKey(), QStringLiteral("kMDItemFSName"));
    added->setQueryString(QStringLiteral("bak"));
    EXPECT_EQ(root->expression(), QStringLiteral("(! ( ((kMDItemFSName == '*tmp*'cd) || (kMDItemFSName == '*bak*'cd)) ))"));
}

TEST_F(CriteriaTree, SwitchingAttributesBringsBackWhatWasTypedForEach)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    QueryLeaf* row = leaf(root, "kMDItemFSSize", 0);
    row->setQueryValues();
    EXPECT_EQ(row->queryUnit(), QVariant(QStringLiteral("KB")));
    EXPECT_EQ(row->queryOperator(), QVariant(QStringLiteral("lessThan")));
    row->setQueryNumber(12);
    row->setQueryUnit(QStringLiteral("MB"));
    row->setQueryOperator(QStringLiteral("greaterThan"));
    // Remember the typed size (the editor writes edited values there too).
    AttributeValue* sizeMemory = row->attributeValueForKey(QStringLiteral("kMDItemFSSize"));
    sizeMemory->setQueryNumber(12);
    sizeMemory->setQueryUnit(QStringLiteral("MB"));

    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    row->setQueryAttribute(attribute("kMDItemContentModificationDate"));
    row->setQueryValues();
    // A row that never had a date gets today's date and days; its number
    // comes from the date attribute's (empty) memory.
    EXPECT_EQ(row->queryUnit(), QVariant(QStringLiteral("day")));
    EXPECT_GE(row->queryDate().toDateTime(), before);
    EXPECT_FALSE(row->queryNumber().isValid());
    EXPECT_EQ(row->queryOperator(), QVariant(QStringLiteral("withinLast")));

    row->setQueryAttribute(attribute("kMDItemFSSize"));
    row->setQueryValues();
    EXPECT_EQ(row->queryNumber(), QVariant(12));
    EXPECT_EQ(row->queryUnit(), QVariant(QStringLiteral("MB")));
    EXPECT_FALSE(row->queryDate().isValid());
    // Setting the attribute chose its first operator, which stays.
    EXPECT_EQ(row->queryOperator(), QVariant(QStringLiteral("lessThan")));
}

TEST_F(CriteriaTree, DefaultsFillWhatTheAttributeTypeNeeds)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    struct Case {
        const char* key;
        const char* op;     // after setQueryValues with no operator
        const char* unit;   // nullptr: none
        bool boolean;
    };
    const Case cases[] = {
        {"kMDItemTextContent", "containsPrefixes", nullptr, false},
        {"kMDItemContentTypeTree", "is", nullptr, false},
        {"kMDItemDisplayName", "contains", nullptr, false},
        {"kMDItemFSSize", "greaterThan", "KB", false},
        {"kMDItemFSNodeCount", "equal", nullptr, false},
        {"kMDItemFSInvisible", "equal", nullptr, true},
        {"kMDItemLastUsedDate", "withinLast", "day", false},
    };
    for (const Case& k : cases) {
        QueryLeaf* row = leaf(root, k.key, 0);
        row->setQueryOperator(QStringLiteral("nonsense"));  // not applicable: cleared
        row->setQueryValues();
        EXPECT_EQ(row->queryOperator(), QVariant(QString::fromLatin1(k.op))) << k.key;
        EXPECT_EQ(row->queryUnit().isValid(), k.unit != nullptr) << k.key;
        if (k.unit) {
            EXPECT_EQ(row->queryUnit(), QVariant(QString::fromLatin1(k.unit))) << k.key;
        }
        EXPECT_EQ(row->queryBoolean().isValid(), k.boolean) << k.key;
        if (k.boolean) {
            EXPECT_EQ(row->queryBoolean(), QVariant(true));
        }
    }
    // An applicable operator is kept.
    QueryLeaf* row = leaf(root, "kMDItemDisplayName", 9);
    row->setQueryOperator(QStringLiteral("endsWith"));
    row->setQueryValues();
    EXPECT_EQ(row->queryOperator(), QVariant(QStringLiteral("endsWith")));
}

TEST_F(CriteriaTree, EachRowHasOneMemoryPerAttribute)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    QueryLeaf* a = leaf(root, "kMDItemFSName", 0);
    QueryLeaf* b = leaf(root, "kMDItemFSName", 1);
    AttributeValue* first = a->attributeValueForKey(QStringLiteral("kMDItemFSName"));
    EXPECT_EQ(a->attributeValueForKey(QStringLiteral("kMDItemFSName")), first);
    EXPECT_NE(b->attributeValueForKey(QStringLiteral("kMDItemFSName")), first);
    EXPECT_NE(a->attributeValueForKey(QStringLiteral("kMDItemKind")), first);
    EXPECT_EQ(first->queryLeaf(), a);
    EXPECT_FALSE(first->queryBoolean().isValid());
    // Memories go with their row.
    c.deleteObject(a);
    EXPECT_TRUE(first->isDeleted());
    EXPECT_EQ(a->attributeValueForKey(QStringLiteral("kMDItemFSName")), nullptr);
}

TEST_F(CriteriaTree, DeletingAGroupTakesItsWholeSubtree)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    auto* group = c.insert<QueryNode>();
    group->setOperatorName(QStringLiteral("OR"));
    root->addLeaf(group, true, -1);
    QueryLeaf* inner = leaf(group, "kMDItemFSName", 0);
    inner->attributeValueForKey(QStringLiteral("kMDItemFSName"));
    QueryAttribute* name = inner->queryAttribute();
    c.deleteObject(group);
    EXPECT_TRUE(inner->isDeleted());
    EXPECT_TRUE(root->children().empty());
    EXPECT_FALSE(name->isDeleted());
    EXPECT_TRUE(name->objects(QStringLiteral("queryLeaves")).empty());
}

TEST_F(CriteriaTree, UndoOfAnAddedRowRestoresTheOrderAndText)
{
    QueryNode* root = QueryNode::rootNodeInContext(c);
    root->setOperatorName(QStringLiteral("OR"));
    QueryLeaf* a = leaf(root, "kMDItemFSName", 0);
    a->setQueryString(QStringLiteral("a"));
    QueryLeaf* b = leaf(root, "kMDItemFSName", 1);
    b->setQueryString(QStringLiteral("b"));
    c.processPendingChanges();
    const QString before = root->expression();

    QueryLeaf* added = a->addRow();
    added->setQueryString(QStringLiteral("new"));
    c.processPendingChanges();
    EXPECT_NE(root->expression(), before);
    c.undo();
    EXPECT_EQ(root->expression(), before);
    EXPECT_EQ(b->sortIndexValue(), 1);
    c.redo();
    EXPECT_EQ(root->orderedChildren(), (std::vector<QueryItem*>{a, added, b}));
}

}  // namespace
}  // namespace trovara::model
