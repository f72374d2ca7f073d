// What a result column shows and how it sorts: the named formatters, the
// choice by custom description, type and multiple values, the sort
// prototype, and sort orders with their stored form.
#include "model/defaults.h"
#include "model/document_model.h"
#include "model/metadata_schema.h"
#include "presentation/byte_formatter.h"
#include "presentation/column_formatters.h"
#include "presentation/date_formatter.h"
#include "presentation/finder_label_formatter.h"
#include "presentation/multivalue_formatter.h"
#include "presentation/number_formatter.h"
#include "presentation_test_support.h"

#include <QDir>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace trovara::presentation {
namespace {

using model::ColumnAttribute;
using Comparison = SortDescriptor::Comparison;

class ColumnFormatters : public ::testing::Test {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/column-formatters.conf"));
        ColumnAttribute::resetCustomColumnAttributesForTesting();
        installColumnPropertiesChooser();
    }
    void TearDown() override
    {
        model::Defaults::shared().removeValue(QStringLiteral("customColumnAttributes"));
        ColumnAttribute::resetCustomColumnAttributesForTesting();
        ColumnAttribute::setPropertiesChooser({});
        model::Defaults::resetSharedForTesting();
    }

    ColumnAttribute* column(const char* key)
    {
        return ColumnAttribute::attributeWithKey(QString::fromLatin1(key), *context);
    }

    // A schema with attributes of every type that no column description names.
    const index::Schema schema{std::vector<index::AttributeInfo>{
        {"kTestDate", index::ValueType::Date, false, "Test date", "", index::AttributeSource::Document, false},
        {"kTestFlag", index::ValueType::Boolean, false, "Test flag", "", index::AttributeSource::Document, false},
        {"kTestCount", index::ValueType::Number, false, "Test count", "", index::AttributeSource::Document, false},
        {"kTestText", index::ValueType::String, false, "Test text", "", index::AttributeSource::Document, false},
        {"kTestSizes", index::ValueType::Number, true, "Test sizes", "", index::AttributeSource::Document, false},
        {"kTestNames", index::ValueType::String, true, "Test names", "", index::AttributeSource::Document, false},
        {"kMDItemFSSize", index::ValueType::Number, false, "Size", "", index::AttributeSource::FileSystem, false},
    }};
    const model::MetadataSchema::Override schemaOverride{schema};
    std::unique_ptr<store::ManagedObjectContext> context = model::makeDocumentContext();
};

TEST_F(ColumnFormatters, TheRegistryHoldsTheSevenNamedFormatters)
{
    const test::ScopedLocale locale(QLocale(QLocale::English, QLocale::UnitedStates));
    const FormatterRegistry& registry = customFormatters();
    QStringList names;
    for (const auto& [name, formatter] : registry) {
        names << name;
        EXPECT_NE(formatter, nullptr);
    }
    EXPECT_EQ(names, QStringList({"bytes", "finderLabel", "integer", "longDate", "longDateTime", "shortDate",
                                  "shortDateTime"}));
    EXPECT_EQ(&customFormatters(), &registry);
    EXPECT_NE(dynamic_cast<const ByteFormatter*>(registry.at("bytes").get()), nullptr);
    EXPECT_NE(dynamic_cast<const FinderLabelFormatter*>(registry.at("finderLabel").get()), nullptr);
    EXPECT_EQ(registry.at("integer")->stringForObjectValue(-3.6), QStringLiteral("-4"));
    const QDateTime date(QDate(2009, 3, 1), QTime(14, 5), QTimeZone::utc());
    EXPECT_EQ(registry.at("shortDate")->stringForObjectValue(date), QStringLiteral("3/1/09"));
    EXPECT_TRUE(registry.at("shortDateTime")->stringForObjectValue(date).startsWith(QStringLiteral("3/1/09 2:05")));
    EXPECT_EQ(registry.at("longDate")->stringForObjectValue(date), QStringLiteral("Sunday, March 1, 2009"));
    EXPECT_TRUE(registry.at("longDateTime")->stringForObjectValue(date).startsWith(QStringLiteral("Sunday, March 1, 2009")));
    EXPECT_TRUE(registry.at("longDateTime")->stringForObjectValue(date).contains(QStringLiteral("2:05:00")));
}

TEST_F(ColumnFormatters, ANamedFormatterWinsOverTheType)
{
    EXPECT_EQ(customFormatterForKey(QStringLiteral("kMDItemFSSize")), customFormatters().at("bytes"));
    EXPECT_EQ(column("kMDItemFSSize")->formatter(), customFormatters().at("bytes"));
    EXPECT_EQ(customFormatterForKey(QStringLiteral("kTestCount")), nullptr);

    model::Defaults::shared().setValue(
        QStringLiteral("customColumnAttributes"),
        QVariantMap{{QStringLiteral("kTestCount"), QVariantMap{{QStringLiteral("formatter"), QStringLiteral("bytes")}}},
                    {QStringLiteral("kTestText"), QVariantMap{{QStringLiteral("formatter"), QStringLiteral("nonsense")}}}});
    ColumnAttribute::resetCustomColumnAttributesForTesting();
    EXPECT_EQ(column("kTestCount")->formatter(), customFormatters().at("bytes"));
    // A name the registry does not know leaves the choice to the type.
    EXPECT_EQ(column("kTestText")->formatter(), nullptr);
}

TEST_F(ColumnFormatters, TheTypeChoosesWhenNothingIsNamed)
{
    const test::ScopedLocale locale(QLocale(QLocale::English, QLocale::UnitedStates));
    const auto* date = dynamic_cast<const DateFormatter*>(column("kTestDate")->formatter().get());
    ASSERT_NE(date, nullptr);
    EXPECT_EQ(date->dateStyle(), DateStyle::Short);
    EXPECT_EQ(date->timeStyle(), DateStyle::Short);

    // Booleans show as 1 and 0, numbers with four decimals, text as it is.
    EXPECT_EQ(column("kTestFlag")->formatter()->stringForObjectValue(true), QStringLiteral("1"));
    EXPECT_EQ(column("kTestFlag")->formatter()->stringForObjectValue(false), QStringLiteral("0"));
    EXPECT_EQ(column("kTestCount")->formatter()->stringForObjectValue(2.5), QStringLiteral("2.5000"));
    EXPECT_EQ(column("kTestText")->formatter(), nullptr);
    EXPECT_EQ(column("kUnknownToTheSchema")->formatter(), nullptr);
}

TEST_F(ColumnFormatters, MultipleValuesAreWrappedAndSortByTheirFirstValue)
{
    const test::ScopedLocale locale(QLocale(QLocale::English, QLocale::UnitedStates));
    const auto* sizes = dynamic_cast<const MultivalueFormatter*>(column("kTestSizes")->formatter().get());
    ASSERT_NE(sizes, nullptr);
    ASSERT_NE(dynamic_cast<const NumberFormatter*>(sizes->baseFormatter().get()), nullptr);
    EXPECT_EQ(sizes->stringForObjectValue(QVariantList{1, 2.5}), QStringLiteral("1.0000, 2.5000"));
    EXPECT_EQ(column("kTestSizes")->sortDescriptorPrototype().keyPath, QStringLiteral("kTestSizes.@firstObject"));

    const auto* names = dynamic_cast<const MultivalueFormatter*>(column("kTestNames")->formatter().get());
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(names->baseFormatter(), nullptr);
    EXPECT_EQ(sortDescriptorPrototypeFor(*column("kTestNames")),
              (SortDescriptor{QStringLiteral("kTestNames.@firstObject"), true, Comparison::LocalizedCaseInsensitive}));
}

TEST_F(ColumnFormatters, TextsSortInTheLocaleOrderAndEverythingElseByDefault)
{
    EXPECT_EQ(sortDescriptorPrototypeFor(*column("kTestText")),
              (SortDescriptor{QStringLiteral("kTestText"), true, Comparison::LocalizedCaseInsensitive}));
    EXPECT_EQ(sortDescriptorPrototypeFor(*column("kTestDate")),
              (SortDescriptor{QStringLiteral("kTestDate"), true, Comparison::Default}));
    EXPECT_EQ(sortDescriptorPrototypeFor(*column("kMDItemFSSize")),
              (SortDescriptor{QStringLiteral("kMDItemFSSize"), true, Comparison::Default}));
    // The store's form orders alike.
    const store::SortDescriptor stored = column("kTestText")->sortDescriptorPrototype();
    EXPECT_EQ(stored.keyPath, QStringLiteral("kTestText"));
    ASSERT_TRUE(stored.comparator);
    EXPECT_LT(stored.comparator(QStringLiteral("apple"), QStringLiteral("Banana")), 0);
    EXPECT_FALSE(column("kTestDate")->sortDescriptorPrototype().comparator);
}

TEST(SortDescriptor, ComparesWithNoValueFirstAndTheChosenTextOrder)
{
    const test::ScopedLocale locale(QLocale(QLocale::English, QLocale::UnitedStates));
    const SortDescriptor byDefault{QStringLiteral("k"), true, Comparison::Default};
    const SortDescriptor localized{QStringLiteral("k"), true, Comparison::LocalizedCaseInsensitive};
    const SortDescriptor descending{QStringLiteral("k"), false, Comparison::Default};
    const QString apple = QStringLiteral("apple");
    const QString banana = QStringLiteral("Banana");
    EXPECT_GT(byDefault.compare(apple, banana), 0);  // code unit order puts capitals first
    EXPECT_LT(localized.compare(apple, banana), 0);
    EXPECT_EQ(localized.compare(QStringLiteral("Äpfel"), QStringLiteral("äpfel")), 0);
    EXPECT_LT(localized.compare(QStringLiteral("Äpfel"), QStringLiteral("Birne")), 0);
    EXPECT_LT(byDefault.compare(QVariant(), 0), 0);
    EXPECT_GT(descending.compare(QVariant(), 0), 0);
    EXPECT_LT(byDefault.compare(2, 10), 0);
    EXPECT_GT(descending.compare(2, 10), 0);
}

TEST(SortDescriptor, ArchivesRoundTripAndForeignBytesDoNotRead)
{
    const std::vector<SortDescriptor> descriptors{
        {QStringLiteral("kMDItemFSSize"), false, Comparison::Default},
        {QStringLiteral("kMDItemDisplayName"), true, Comparison::LocalizedCaseInsensitive},
    };
    const QByteArray archive = SortDescriptor::archive(descriptors);
    EXPECT_EQ(SortDescriptor::unarchive(archive), descriptors);
    EXPECT_EQ(SortDescriptor::unarchive(SortDescriptor::archive({})), std::vector<SortDescriptor>{});

    EXPECT_FALSE(SortDescriptor::unarchive(QByteArray()));
    EXPECT_FALSE(SortDescriptor::unarchive(QByteArray("bplist00\x01\x02")));
    EXPECT_FALSE(SortDescriptor::unarchive(QByteArray(archive).replace("\"version\":1", "\"version\":2")));
    EXPECT_FALSE(SortDescriptor::unarchive(QByteArray(archive).replace("localizedCaseInsensitiveCompare", "caseless")));
    EXPECT_FALSE(SortDescriptor::unarchive(
        R"({"format":"trovara-sort","version":1,"descriptors":[{"key":"","ascending":true,"comparison":"compare"}]})"));
}

}  // namespace
}  // namespace trovara::presentation
