// The attribute catalogue: derived types and names, the operators each kind
// of attribute offers, get-or-create look-ups, a new document's columns and
// limit, and the custom column descriptions.
#include "common/log.h"
#include "model/abstract_attribute.h"
#include "model/defaults.h"
#include "model/document_model.h"
#include "model/ordered_column_attribute.h"
#include "model/relational_operator.h"
#include "test_support.h"

#include <QDir>

#include <gtest/gtest.h>

namespace trovara::model {
namespace {

class Attributes : public ::testing::Test {
protected:
    Attributes()
        : context(makeDocumentContext())
        , c(*context)
    {
    }

    std::unique_ptr<store::ManagedObjectContext> context;
    store::ManagedObjectContext& c;
};

TEST_F(Attributes, TypesAndNamesComeFromTheSchemaAndTables)
{
    struct Case {
        const char* key;
        int type;  // 0: none
        bool list;
        const char* name;
    };
    const Case cases[] = {
        {"kMDItemDisplayName", kStringTypeID, false, "Name"},
        {"kMDItemFSSize", kNumberTypeID, false, "Size"},
        {"kMDItemFSInvisible", kBooleanTypeID, false, "Invisible"},
        {"kMDItemContentModificationDate", kDateTypeID, false, "Content modified"},
        {"kMDItemContentTypeTree", kStringTypeID, true, "Content type tree"},
        {"*", kStringTypeID, false, "Any text"},
        {"kMDItemNoSuchThing", 0, false, "kMDItemNoSuchThing"},
        {"", 0, false, "?"},
    };
    for (const Case& k : cases) {
        QueryAttribute* attribute = QueryAttribute::attributeWithKey(QString::fromLatin1(k.key), c);
        EXPECT_EQ(attribute->attributeType().isValid(), k.type != 0) << k.key;
        EXPECT_EQ(attribute->attributeType().toInt(), k.type) << k.key;
        EXPECT_EQ(attribute->isMultivaluedType(), k.list) << k.key;
        EXPECT_EQ(attribute->attributeName(), QString::fromLatin1(k.name)) << k.key;
    }
    QueryAttribute* size = QueryAttribute::attributeWithKey(QStringLiteral("kMDItemFSSize"), c);
    EXPECT_TRUE(size->isNumberType());
    EXPECT_FALSE(size->isStringType() || size->isBooleanType() || size->isDateType());
    EXPECT_EQ(size->description(), QStringLiteral("<QueryAttribute> kMDItemFSSize"));
    EXPECT_EQ(AbstractAttribute::stringTypeID(), kStringTypeID);
}

TEST_F(Attributes, EachTagKeyStandsInForTheOtherWhenTheSchemaLacksIt)
{
    index::Schema onlyShort({{"kOMUserTags", index::ValueType::String, true, "Labels", "", {}, true}});
    MetadataSchema::Override schema(onlyShort);
    QueryAttribute* tags = QueryAttribute::attributeWithKey(QStringLiteral("kMDItemOMUserTags"), c);
    EXPECT_TRUE(tags->isStringType());
    EXPECT_TRUE(tags->isMultivaluedType());
    EXPECT_EQ(tags->attributeName(), QStringLiteral("Labels"));
    // Other keys have no stand-in.
    EXPECT_FALSE(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemUserTags"), c)->attributeType().isValid());
}

TEST_F(Attributes, LimitAttributesAreNamedFromTheirOwnTableFirst)
{
    EXPECT_EQ(LimitAttribute::nameForKey(QStringLiteral("kMDItemLastUsedDate")), QStringLiteral("recently used"));
    EXPECT_EQ(LimitAttribute::nameForKey(QStringLiteral("kMDItemFSSize")), QStringLiteral("Size"));
    EXPECT_EQ(QueryAttribute::nameForKey(QStringLiteral("kMDItemLastUsedDate")), QStringLiteral("Last opened"));
    EXPECT_TRUE(QueryAttribute::nameForKey(QStringLiteral("kMDItemNoSuchThing")).isNull());
    EXPECT_EQ(LimitAttribute::attributeWithKey(QStringLiteral("kMDItemContentCreationDate"), c)->attributeName(),
              QStringLiteral("recently created"));
}

TEST_F(Attributes, OperatorsFollowTheTypeAndKey)
{
    using RO = RelationalOperator;
    auto operators = [&](const char* key) {
        return QueryAttribute::attributeWithKey(QString::fromLatin1(key), c)->applicableOperators();
    };
    EXPECT_EQ(operators("*"), RO::contentStringOperators());
    EXPECT_EQ(operators("kMDItemTextContent"), RO::contentStringOperators());
    EXPECT_EQ(operators("kMDItemContentTypeTree"), std::vector<const RelationalOperator*>{RO::isOperator()});
    EXPECT_EQ(operators("kMDItemDisplayName"), RO::basicStringOperators());
    EXPECT_EQ(operators("kMDItemOMUserTags"), RO::basicStringOperators());
    EXPECT_EQ(operators("kMDItemFSSize"),
              (std::vector<const RelationalOperator*>{RO::lessThanOperator(), RO::greaterThanOperator()}));
    EXPECT_EQ(operators("kMDItemFSLabel"), RO::numberOperators());
    EXPECT_EQ(operators("kMDItemFSInvisible"), RO::booleanOperators());
    EXPECT_EQ(operators("kMDItemDueDate"), RO::dateOperators());
    EXPECT_TRUE(operators("kMDItemNoSuchThing").empty());
}

TEST_F(Attributes, LookUpsMakeOneObjectPerKeyAndClass)
{
    QueryAttribute* a = QueryAttribute::attributeWithKey(QStringLiteral("kMDItemKind"), c);
    EXPECT_EQ(QueryAttribute::attributeWithKey(QStringLiteral("kMDItemKind"), c), a);
    ColumnAttribute* column = ColumnAttribute::attributeWithKey(QStringLiteral("kMDItemKind"), c);
    EXPECT_NE(static_cast<store::ManagedObject*>(column), static_cast<store::ManagedObject*>(a));
    EXPECT_EQ(QueryAttribute::availableAttributesInContext(c).size(), 1u);
    EXPECT_EQ(ColumnAttribute::availableAttributesInContext(c).size(), 1u);
}

TEST_F(Attributes, AvailableAttributesSortByNameThenKey)
{
    for (const char* key : {"kOMUserTags", "kMDItemFSSize", "kMDItemOMUserTags", "*", "kMDItemDisplayName"}) {
        QueryAttribute::attributeWithKey(QString::fromLatin1(key), c);
    }
    QStringList order;
    for (QueryAttribute* attribute : QueryAttribute::availableAttributesInContext(c)) {
        order << attribute->attributeName() + QLatin1Char('/') + attribute->attributeKey();
    }
    EXPECT_EQ(order, QStringList({"Any text/*", "Name/kMDItemDisplayName", "Size/kMDItemFSSize",
                                  "Tags/kMDItemOMUserTags", "Tags/kOMUserTags"}));
}

TEST_F(Attributes, AFailedListingIsLoggedAndGivesNothing)
{
    QueryAttribute::attributeWithKey(QStringLiteral("kMDItemKind"), c);
    c.injectFetchFailure(QStringLiteral("AbstractAttribute"), Error::make(Error::kFetchError, QStringLiteral("broken")));
    QStringList lines;
    test::ScopedEnv logging("MLogOn", nullptr);
    log::setSink([&](const QString& line) { lines << line; });
    EXPECT_TRUE(QueryAttribute::availableAttributesInContext(c).empty());
    log::setSink([](const QString&) {});
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("Failed to fetch available attributes: broken"))) << lines[0].toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("abstract_attribute.cpp:"))) << lines[0].toStdString();
}

TEST_F(Attributes, LoggingIsOffWhenMLogOnIsNo)
{
    QStringList lines;
    log::setSink([&](const QString& line) { lines << line; });
    {
        test::ScopedEnv off("MLogOn", "NO");
        TLOG(QStringLiteral("hidden"));
    }
    {
        test::ScopedEnv other("MLogOn", "no");
        TLOG(QStringLiteral("shown"));
    }
    log::setSink([](const QString&) {});
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral(" shown")));
}

TEST_F(Attributes, ANewDocumentKnowsSevenColumnsThreeVisibleAndTheLimit)
{
    primeContext(c);
    primeContext(c);  // priming twice changes nothing
    QStringList columns;
    for (ColumnAttribute* column : ColumnAttribute::availableAttributesInContext(c)) {
        columns << column->attributeKey();
    }
    columns.sort();
    EXPECT_EQ(columns, QStringList({"kMDItemContentCreationDate", "kMDItemContentModificationDate",
                                    "kMDItemDisplayName", "kMDItemFSLabel", "kMDItemFSSize", "kMDItemKind",
                                    "kMDItemPath"}));
    QStringList visible;
    for (OrderedColumnAttribute* column : OrderedColumnAttribute::orderedColumns(c)) {
        visible << QStringLiteral("%1@%2").arg(column->columnAttribute()->attributeKey()).arg(column->sortIndexValue());
    }
    EXPECT_EQ(visible, QStringList({"kMDItemDisplayName@0", "kMDItemKind@1", "kMDItemContentModificationDate@2"}));
    EXPECT_EQ(LimitAttribute::availableAttributesInContext(c).size(), 3u);
    ValuedLimitAttribute* limit = ValuedLimitAttribute::limitInContext(c);
    ASSERT_NE(limit, nullptr);
    EXPECT_EQ(limit->limitValue().toInt(), 1000);
    EXPECT_FALSE(limit->ascending());
    EXPECT_EQ(limit->limitAttribute()->attributeKey(), QStringLiteral("kMDItemLastUsedDate"));
    Result<std::vector<ValuedLimitAttribute*>> all = c.fetch<ValuedLimitAttribute>();
    EXPECT_EQ(all->size(), 1u);
}

TEST_F(Attributes, NewColumnsGoAfterTheHighestIndex)
{
    ColumnAttribute* kind = ColumnAttribute::attributeWithKey(QStringLiteral("kMDItemKind"), c);
    EXPECT_EQ(OrderedColumnAttribute::createOrderedColumnAttributeWith(kind)->sortIndexValue(), 0);
    OrderedColumnAttribute* second = OrderedColumnAttribute::createOrderedColumnAttributeWith(kind);
    second->setSortIndexValue(7);
    EXPECT_EQ(OrderedColumnAttribute::createOrderedColumnAttributeWith(kind)->sortIndexValue(), 8);
    EXPECT_EQ(kind->objects(QStringLiteral("orderedColumnAttributes")).size(), 3u);
    // A column attribute takes its visible columns with it.
    c.deleteObject(kind);
    EXPECT_TRUE(OrderedColumnAttribute::orderedColumns(c).empty());
}

class CustomColumns : public ::testing::Test {
protected:
    void SetUp() override
    {
        Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/columns-test.conf"));
        ColumnAttribute::resetCustomColumnAttributesForTesting();
    }
    void TearDown() override
    {
        Defaults::shared().removeValue(QStringLiteral("customColumnAttributes"));
        ColumnAttribute::resetCustomColumnAttributesForTesting();
        ColumnAttribute::setPropertiesChooser({});
        Defaults::resetSharedForTesting();
    }
};

TEST_F(CustomColumns, TheUserDefaultOverlaysTheBuiltInDescriptions)
{
    EXPECT_EQ(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemFSSize")), QStringLiteral("bytes"));
    EXPECT_EQ(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemFSLabel")),
              QStringLiteral("finderLabel"));
    EXPECT_TRUE(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemDisplayName")).isNull());

    Defaults::shared().setValue(QStringLiteral("customColumnAttributes"),
                                QVariantMap{{QStringLiteral("kMDItemPixelWidth"),
                                             QVariantMap{{QStringLiteral("formatter"), QStringLiteral("bytes")}}},
                                            {QStringLiteral("kMDItemTitle"),
                                             QVariantMap{{QStringLiteral("formatter"), QStringLiteral("integer")}}}});
    // Built once: the change is seen only by a fresh build.
    EXPECT_EQ(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemPixelWidth")), QStringLiteral("integer"));
    ColumnAttribute::resetCustomColumnAttributesForTesting();
    EXPECT_EQ(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemPixelWidth")), QStringLiteral("bytes"));
    EXPECT_EQ(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemTitle")), QStringLiteral("integer"));
    EXPECT_EQ(ColumnAttribute::customFormatterNameForKey(QStringLiteral("kMDItemFSSize")), QStringLiteral("bytes"));
}

TEST_F(CustomColumns, RefreshingAColumnClearsAndChoosesItsFormatterAgain)
{
    struct Fixed : Formatter {
        QString stringForObjectValue(const QVariant&) const override { return QStringLiteral("x"); }
    };
    auto formatter = std::make_shared<Fixed>();
    int chosen = 0;
    ColumnAttribute::setPropertiesChooser([&](ColumnAttribute& column) {
        ++chosen;
        if (column.isNumberType()) {
            column.setFormatter(formatter);
            column.setSortDescriptorPrototype({column.attributeKey(), true, {}});
        }
    });
    auto context = makeDocumentContext();
    ColumnAttribute* size = ColumnAttribute::attributeWithKey(QStringLiteral("kMDItemFSSize"), *context);
    EXPECT_EQ(size->formatter(), formatter);
    EXPECT_EQ(size->sortDescriptorPrototype().keyPath, QStringLiteral("kMDItemFSSize"));
    size->setAttributeKey(QStringLiteral("kMDItemKind"));
    EXPECT_EQ(size->formatter(), nullptr);
    EXPECT_TRUE(size->sortDescriptorPrototype().keyPath.isEmpty());
    EXPECT_EQ(size->attributeName(), QStringLiteral("Kind"));
    EXPECT_GE(chosen, 2);
}

}  // namespace
}  // namespace trovara::model
