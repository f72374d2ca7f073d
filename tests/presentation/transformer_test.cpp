// Key/value rows: an item's attributes for the inspector, and plain
// dictionaries both ways.
#include "common/log.h"
#include "model/metadata_schema.h"
#include "model/value_transformer.h"
#include "presentation/metadata_item_transformer.h"
#include "presentation/metadata_value.h"
#include "presentation_test_support.h"

#include <QTimeZone>

#include <gtest/gtest.h>

namespace trovara::presentation {
namespace {

using test::FileRecord;
using test::makeItem;

QStringList column(const QVariantList& rows, const char* name)
{
    QStringList values;
    for (const QVariant& row : rows) {
        values << row.toMap().value(QString::fromLatin1(name)).toString();
    }
    return values;
}

QString valueOf(const QVariantList& rows, const char* key)
{
    for (const QVariant& row : rows) {
        if (row.toMap().value(QStringLiteral("key")) == QString::fromLatin1(key)) {
            return row.toMap().value(QStringLiteral("value")).toString();
        }
    }
    return {};
}

class MetaDataItemRows : public ::testing::Test {
protected:
    const test::ScopedLocale locale{QLocale(QLocale::English, QLocale::UnitedStates)};
    const MetaDataItemTransformer& transformer = *MetaDataItemTransformer::sharedInstance();
};

TEST_F(MetaDataItemRows, ListNamedAttributesSortedByLabelWithFormattedValues)
{
    FileRecord record{"/home/ann/Notes/plan.txt", 123456};
    record.comment = "first line\nsecond line";
    record.tags = {"work", "urgent"};
    record.invisible = false;
    const QVariantList rows = transformer.rowsForItem(makeItem(record));

    QStringList labels = column(rows, "label");
    QStringList sorted = labels;
    sorted.sort();
    EXPECT_EQ(labels, sorted);
    EXPECT_FALSE(labels.isEmpty());
    for (const QVariant& row : rows) {
        EXPECT_EQ(row.toMap().keys(), QStringList({"key", "label", "value"}));
    }
    EXPECT_EQ(valueOf(rows, "kMDItemDisplayName"), QStringLiteral("plan.txt"));
    EXPECT_EQ(valueOf(rows, "kMDItemFSSize"), QStringLiteral("123456 bytes"));  // unscaled, lower case
    EXPECT_EQ(valueOf(rows, "kMDItemFinderComment"), QStringLiteral("first line second line"));
    EXPECT_EQ(valueOf(rows, "kMDItemFSInvisible"), QStringLiteral("No"));
    EXPECT_EQ(valueOf(rows, "kMDItemOMUserTags"), QStringLiteral("work, urgent"));
    EXPECT_EQ(valueOf(rows, "kMDItemFSLabel"), QStringLiteral("0"));
    EXPECT_EQ(valueOf(rows, "kMDItemContentModificationDate"),
              QLocale().toString(dateFromReferenceSeconds(1235916300 - index::kReferenceDateOffset).toLocalTime(),
                                 QLocale::ShortFormat));
    EXPECT_TRUE(valueOf(rows, "kMDItemContentTypeTree").startsWith(QStringLiteral("public.plain-text, public.text")));

    record.invisible = true;
    EXPECT_EQ(valueOf(transformer.rowsForItem(makeItem(record)), "kMDItemFSInvisible"), QStringLiteral("Yes"));
}

TEST_F(MetaDataItemRows, LeaveOutWhatTheCatalogueDoesNotNameOrTheSchemaDoesNotType)
{
    // A schema that names the size but not the path, and does not know the kind.
    const index::Schema schema{std::vector<index::AttributeInfo>{
        {"kMDItemFSSize", index::ValueType::Number, false, "Size", "", index::AttributeSource::FileSystem, false},
        {"kMDItemPath", index::ValueType::String, false, "", "", index::AttributeSource::FileSystem, false},
    }};
    const model::MetadataSchema::Override override(schema);
    const QVariantList rows = transformer.rowsForItem(makeItem({"/tmp/x.txt", 5}));
    EXPECT_EQ(column(rows, "key"), QStringList{"kMDItemFSSize"});
    EXPECT_EQ(column(rows, "label"), QStringList{"Size"});
}

TEST_F(MetaDataItemRows, FormatFollowsTheDeclaredType)
{
    const QString key = QStringLiteral("kSomething");
    EXPECT_EQ(transformer.format(QStringLiteral("a\nb\nc"), model::kStringTypeID, key), QStringLiteral("a b c"));
    EXPECT_EQ(transformer.format(2.5, model::kNumberTypeID, key), QStringLiteral("2.5"));
    EXPECT_EQ(transformer.format(4096.0, model::kNumberTypeID, QStringLiteral("kMDItemFSSize")),
              QStringLiteral("4096 bytes"));
    EXPECT_EQ(transformer.format(2, model::kBooleanTypeID, key), QStringLiteral("Yes"));
    EXPECT_EQ(transformer.format(0, model::kBooleanTypeID, key), QStringLiteral("No"));
    EXPECT_EQ(transformer.format(-1, model::kBooleanTypeID, key), QStringLiteral("No"));
    EXPECT_EQ(transformer.format(QVariantList{1.0, 2.0}, model::kNumberTypeID, key), QStringLiteral("1, 2"));
    EXPECT_TRUE(transformer.format(QVariantList{}, model::kStringTypeID, key).isNull());
}

TEST_F(MetaDataItemRows, AnUnknownTypeIsLoggedAndLeftOut)
{
    QStringList lines;
    log::setSink([&](const QString& line) { lines << line; });
    EXPECT_TRUE(transformer.format(QStringLiteral("odd"), 99, QStringLiteral("kOdd")).isNull());
    // A list whose elements all format to nothing has no text either.
    EXPECT_TRUE(transformer.format(QVariantList{QStringLiteral("a"), QStringLiteral("b")}, 99, QStringLiteral("kOdd")).isNull());
    log::setSink([](const QString&) {});
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral(" odd"))) << lines[0].toStdString();
    EXPECT_TRUE(lines[2].endsWith(QStringLiteral(" b"))) << lines[2].toStdString();
}

TEST_F(MetaDataItemRows, TransformOnlyIndexRecords)
{
    EXPECT_FALSE(transformer.allowsReverseTransformation());
    EXPECT_EQ(MetaDataItemTransformer::transformedValueClass(), QMetaType::fromType<QVariantList>());
    EXPECT_EQ(transformer.transformedValue(QVariant()).toList(), QVariantList());
    EXPECT_EQ(transformer.transformedValue(QStringLiteral("/tmp/x")).toList(), QVariantList());
    const index::ItemRef item = makeItem({"/tmp/x.txt", 5});
    EXPECT_EQ(transformer.transformedValue(QVariant::fromValue(item)).toList(), transformer.rowsForItem(item));
}

TEST(DictionaryTransformer, RowsAndBack)
{
    const DictionaryTransformer& transformer = *DictionaryTransformer::sharedInstance();
    EXPECT_TRUE(transformer.allowsReverseTransformation());
    const QVariantMap map{{QStringLiteral("b"), 2}, {QStringLiteral("a"), QStringLiteral("one")}};
    const QVariantList rows = transformer.transformedValue(map).toList();
    EXPECT_EQ(rows, (QVariantList{QVariantMap{{"key", "a"}, {"value", "one"}}, QVariantMap{{"key", "b"}, {"value", 2}}}));
    EXPECT_EQ(transformer.reverseTransformedValue(rows).toMap(), map);

    // Later rows win; a row without a value removes its key.
    const QVariantList edited{QVariantMap{{"key", "a"}, {"value", 1}}, QVariantMap{{"key", "a"}, {"value", 3}},
                              QVariantMap{{"key", "b"}, {"value", 2}}, QVariantMap{{"key", "b"}}};
    EXPECT_EQ(transformer.reverseTransformedValue(edited).toMap(), (QVariantMap{{"a", 3}}));
}

TEST(PresentationTransformers, AreRegisteredUnderTheirNames)
{
    registerPresentationTransformers();
    registerPresentationTransformers();
    EXPECT_EQ(model::ValueTransformer::valueTransformerForName(QStringLiteral("metaDataItemTransformer")),
              MetaDataItemTransformer::sharedInstance());
    EXPECT_EQ(model::ValueTransformer::valueTransformerForName(QStringLiteral("dictionaryTransformer")),
              DictionaryTransformer::sharedInstance());
}

TEST(MetadataValues, BecomeQtValues)
{
    using index::query::AttributeValue;
    using index::query::Date;
    EXPECT_EQ(variantFromAttributeValue(AttributeValue("text")), QVariant(QStringLiteral("text")));
    EXPECT_EQ(variantFromAttributeValue(AttributeValue(5)), QVariant(5.0));
    EXPECT_EQ(variantFromAttributeValue(AttributeValue(true)), QVariant(true));
    EXPECT_EQ(variantFromAttributeValue(AttributeValue(Date{257609100})),
              QVariant(QDateTime(QDate(2009, 3, 1), QTime(14, 5), QTimeZone::utc())));
    EXPECT_EQ(variantFromAttributeValue(AttributeValue{"a", "b"}), QVariant(QVariantList{"a", "b"}));
    EXPECT_EQ(variantFromAttributeValue(AttributeValue::list({})), QVariant(QVariantList{}));
}

}  // namespace
}  // namespace trovara::presentation
