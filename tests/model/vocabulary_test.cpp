// The closed vocabularies, their labels and lists, the value transformers,
// and how relational operators write values into query text.
#include "model/content_type.h"
#include "model/finder_label_value.h"
#include "model/platform.h"
#include "model/relational_operator.h"
#include "model/value.h"
#include "model/value_transformer.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <unordered_set>

namespace trovara::model {
namespace {

using RO = RelationalOperator;

QStringList representations(const std::vector<const RelationalOperator*>& operators)
{
    QStringList names;
    for (const RelationalOperator* op : operators) {
        names << op->name();
    }
    return names;
}

TEST(RelationalOperators, HaveTheirExpressionSuffixAndLabel)
{
    struct Row {
        const RelationalOperator* op;
        const char* name;
        const char* expression;
        const char* suffix;  // nullptr: none
        const char* label;
        const char* display;
    };
    const Row table[] = {
        {RO::lessThanOperator(), "lessThan", "<", nullptr, "less than", "<"},
        {RO::equalOperator(), "equal", "=", nullptr, "equal to", "="},
        {RO::greaterThanOperator(), "greaterThan", ">", nullptr, "greater than", ">"},
        {RO::withinLastOperator(), "withinLast", ">=", nullptr, "within last", ">="},
        {RO::beforeOperator(), "before", "<", nullptr, "before", "<"},
        {RO::onOperator(), "on", "=", nullptr, "on", "="},
        {RO::afterOperator(), "after", ">=", nullptr, "after", ">="},
        {RO::beginsWithOperator(), "beginsWith", "==", "cd", "begins with", "==[cd]"},
        {RO::endsWithOperator(), "endsWith", "==", "cd", "ends with", "==[cd]"},
        {RO::containsOperator(), "contains", "==", "cd", "contains", "==[cd]"},
        {RO::isOperator(), "is", "==", "c", "is", "==[c]"},
        {RO::containsPhraseOperator(), "containsPhrase", "==", "c", "contains phrase", "==[c]"},
        {RO::containsWordsOperator(), "containsWords", "==", "cdw", "contains words", "==[cdw]"},
        {RO::containsPrefixesOperator(), "containsPrefixes", "==", "cdw", "contains prefixes", "==[cdw]"},
        {RO::containsFuzzyOperator(), "containsFuzzy", "==", "cd", "contains fuzzy", "==[cd]"},
    };
    for (const Row& row : table) {
        EXPECT_EQ(row.op->name(), QLatin1String(row.name));
        EXPECT_EQ(row.op->operatorExpression(), QLatin1String(row.expression)) << row.name;
        EXPECT_EQ(row.op->suffix().isNull(), row.suffix == nullptr) << row.name;
        if (row.suffix) {
            EXPECT_EQ(row.op->suffix(), QLatin1String(row.suffix)) << row.name;
        }
        EXPECT_EQ(row.op->label(), QLatin1String(row.label)) << row.name;
        EXPECT_EQ(row.op->expression(), QLatin1String(row.display)) << row.name;
        // Shared instances: asking again gives the same object.
        EXPECT_EQ(RelationalOperatorTransformer::sharedInstance()->lookup(QString::fromLatin1(row.name)), row.op);
    }
}

TEST(RelationalOperators, ListsKeepTheMenuOrder)
{
    EXPECT_EQ(representations(RO::numberOperators()), QStringList({"equal", "lessThan", "greaterThan"}));
    EXPECT_EQ(representations(RO::dateOperators()), QStringList({"withinLast", "on", "before", "after"}));
    EXPECT_EQ(representations(RO::stringOperators()),
              QStringList({"beginsWith", "contains", "endsWith", "is", "containsPhrase", "containsWords",
                           "containsPrefixes", "containsFuzzy"}));
    EXPECT_EQ(representations(RO::basicStringOperators()), QStringList({"contains", "is", "beginsWith", "endsWith"}));
    EXPECT_EQ(representations(RO::contentStringOperators()),
              QStringList({"containsFuzzy", "containsPrefixes", "containsWords", "containsPhrase"}));
    EXPECT_EQ(representations(RO::booleanOperators()), QStringList({"equal"}));
    QStringList all = representations(RO::numberOperators()) + representations(RO::dateOperators())
                      + representations(RO::stringOperators());
    EXPECT_EQ(representations(RO::relationalOperators()), all);
}

TEST(RelationalOperators, ACopyIsEqualButNotSharedAndHasNoLabel)
{
    std::unique_ptr<Value> copy = RO::containsOperator()->copy();
    auto* op = dynamic_cast<RelationalOperator*>(copy.get());
    ASSERT_NE(op, nullptr);
    EXPECT_TRUE(op->isEqual(*RO::containsOperator()));
    EXPECT_EQ(op->hash(), RO::containsOperator()->hash());
    EXPECT_TRUE(op->label().isEmpty());
    EXPECT_TRUE(op->operatorExpression().isEmpty());
    // Formatting compares by identity: a copy adds no wildcards.
    EXPECT_EQ(op->format(QStringLiteral("x"), nullptr), QStringLiteral("x"));
}

TEST(RelationalOperators, FormatEscapesAndDecorates)
{
    struct Case {
        const RelationalOperator* op;
        QVariant value;
        const Unit* unit;
        const char* text;
    };
    const Case cases[] = {
        {RO::isOperator(), QStringLiteral("O'Brien\\x"), nullptr, R"(O\'Brien\\x)"},
        {RO::containsOperator(), QStringLiteral("a*b"), nullptr, "*a*b*"},
        {RO::containsFuzzyOperator(), QStringLiteral("a"), nullptr, "*a*"},
        {RO::containsPhraseOperator(), QStringLiteral("a b"), nullptr, "*a b*"},
        {RO::containsPrefixesOperator(), QStringLiteral("a"), nullptr, "a*"},
        {RO::beginsWithOperator(), QStringLiteral("a"), nullptr, "a*"},
        {RO::endsWithOperator(), QStringLiteral("a"), nullptr, "*a"},
        {RO::containsWordsOperator(), QStringLiteral("a"), nullptr, "a"},
        {RO::withinLastOperator(), 5, Unit::hourUnit(), "$time.now(-18000)"},
        {RO::withinLastOperator(), 5, nullptr, "$time.now(-18000)"},
        {RO::withinLastOperator(), 3, Unit::dayUnit(), "$time.today(-3)"},
        {RO::withinLastOperator(), 2, Unit::weekUnit(), "$time.this_week(-2)"},
        {RO::withinLastOperator(), 4, Unit::monthUnit(), "$time.this_month(-4)"},
        {RO::withinLastOperator(), 1, Unit::yearUnit(), "$time.this_year(-1)"},
        {RO::withinLastOperator(), 1.5, Unit::dayUnit(), "$time.today(-1)"},
        {RO::withinLastOperator(), -2, Unit::dayUnit(), "$time.today(2)"},
        {RO::withinLastOperator(), -2, Unit::hourUnit(), "$time.now(7200)"},
        {RO::withinLastOperator(), 0, Unit::hourUnit(), "$time.now(-0)"},
        {RO::greaterThanOperator(), 10, Unit::kiloByteUnit(), "10000"},
        {RO::greaterThanOperator(), 1.5, Unit::gigaByteUnit(), "1500000000"},
        {RO::greaterThanOperator(), 0.0005, Unit::kiloByteUnit(), "0"},
        {RO::equalOperator(), true, nullptr, "1"},
        {RO::equalOperator(), false, nullptr, "0"},
        {RO::equalOperator(), QVariant::fromValue(266716800.0f), nullptr, "266716800"},
        {RO::containsOperator(), QVariant::fromValue(266716800.0f), nullptr, "*2.667168e+08*"},
        {RO::containsOperator(), 0.1, nullptr, "*0.1*"},
        {RO::containsOperator(), 1e20, nullptr, "*1e+20*"},
        {RO::equalOperator(), QStringLiteral("plain"), Unit::kiloByteUnit(), "plain"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.op->format(c.value, c.unit), QString::fromUtf8(c.text)) << c.op->name().toStdString() << " "
                                                                             << c.value.toString().toStdString();
    }
    EXPECT_EQ(RO::containsOperator()->expressionWithAttribute(QStringLiteral("kMDItemDisplayName"),
                                                              QStringLiteral("report"), nullptr),
              QStringLiteral("(kMDItemDisplayName == '*report*'cd)"));
    EXPECT_EQ(RO::lessThanOperator()->expressionWithAttribute(QStringLiteral("k"), 3, nullptr),
              QStringLiteral("(k < '3')"));
}

TEST(RelationalOperators, TheByteBaseFollowsTheToolkitVersion)
{
    platform::setToolkitVersionForTesting(824.9);
    EXPECT_EQ(platform::byteUnitBase(), 1024);
    EXPECT_EQ(RO::greaterThanOperator()->format(10, Unit::kiloByteUnit()), QStringLiteral("10240"));
    EXPECT_EQ(RO::greaterThanOperator()->format(1.5, Unit::gigaByteUnit()), QStringLiteral("1610612736"));
    platform::setToolkitVersionForTesting(949);
    EXPECT_EQ(platform::byteUnitBase(), 1000);
    platform::setToolkitVersionForTesting(-1);
    EXPECT_EQ(platform::byteUnitBase(), 1000);
}

TEST(RelationalOperators, ProxiesPairAnOperatorWithAnAttribute)
{
    const auto proxies = RelationalOperatorProxy::proxysForOperators(RO::basicStringOperators(), QStringLiteral("k"));
    ASSERT_EQ(proxies.size(), 4u);
    EXPECT_EQ(proxies[1].relationalOperator(), RO::isOperator());
    EXPECT_EQ(proxies[1].label(), QStringLiteral("is"));
    EXPECT_EQ(proxies[1].attributeKey(), QStringLiteral("k"));
    const RelationalOperatorProxy same(RO::isOperator(), QStringLiteral("k"));
    const RelationalOperatorProxy otherKey(RO::isOperator(), QStringLiteral("j"));
    EXPECT_TRUE(proxies[1] == same);
    EXPECT_FALSE(proxies[1] == otherKey);
    EXPECT_EQ(proxies[1].hash(), otherKey.hash());
    std::unique_ptr<Value> copy = RO::isOperator()->copy();
    EXPECT_TRUE(same == RelationalOperatorProxy(static_cast<RelationalOperator*>(copy.get()), QStringLiteral("k")));
}

TEST(Vocabularies, BooleanOperatorsValuesAndUnits)
{
    EXPECT_EQ(BooleanOperator::andOperator()->label(), QStringLiteral("ALL of the following are true:"));
    EXPECT_EQ(BooleanOperator::orOperator()->label(), QStringLiteral("ANY of the following is true:"));
    EXPECT_EQ(BooleanOperator::notOperator()->label(), QStringLiteral("NONE of the following is true:"));
    EXPECT_TRUE(BooleanOperator(QStringLiteral("XOR")).label().isEmpty());
    // Labels go by representation: a copy keeps its label.
    EXPECT_EQ(BooleanOperator::orOperator()->copy()->label(), BooleanOperator::orOperator()->label());
    EXPECT_EQ(BooleanOperator::booleanOperators(),
              (std::vector<const BooleanOperator*>{BooleanOperator::andOperator(), BooleanOperator::orOperator(),
                                                   BooleanOperator::notOperator()}));

    EXPECT_EQ(BooleanValue::yesValue()->label(), QStringLiteral("Yes"));
    EXPECT_EQ(BooleanValue::noValue()->label(), QStringLiteral("No"));
    EXPECT_EQ(BooleanValue::booleanValues().front(), BooleanValue::yesValue());

    QStringList labels;
    for (const Unit* unit : Unit::units()) {
        labels << unit->representation().toString() + QLatin1Char('=') + unit->label();
    }
    EXPECT_EQ(labels, QStringList({"hour=hours", "day=days", "week=weeks", "month=months", "year=years", "KB=KB",
                                   "MB=MB", "GB=GB"}));
    EXPECT_EQ(Unit::dateUnits().size(), 5u);
    EXPECT_EQ(Unit::fileSizeUnits().front(), Unit::kiloByteUnit());
    EXPECT_TRUE(Unit(QStringLiteral("TB")).label().isEmpty());
}

TEST(Vocabularies, ValuesAreEqualByRepresentation)
{
    EXPECT_TRUE(Value(QStringLiteral("day")).isEqual(*Unit::dayUnit()));
    EXPECT_FALSE(Value(QStringLiteral("Day")).isEqual(*Unit::dayUnit()));
    EXPECT_TRUE(Value(3).isEqual(Value(3.0)));
    EXPECT_TRUE(Value(true).isEqual(Value(1)));
    EXPECT_FALSE(Value(QStringLiteral("3")).isEqual(Value(3)));
    EXPECT_EQ(Value(3).hash(), Value(3.0).hash());
}

TEST(ContentTypes, AreSortedByLabelWithAnyFirst)
{
    const auto& types = ContentType::contentTypes();
    ASSERT_EQ(types.size(), 17u);
    EXPECT_EQ(types.front()->utiString(), QString());
    EXPECT_EQ(types.front()->label(), QStringLiteral("- Any"));
    for (std::size_t i = 1; i < types.size(); ++i) {
        EXPECT_LE(types[i - 1]->label().compare(types[i]->label()), 0) << i;
    }
    std::set<QString> identifiers;
    for (const ContentType* type : types) {
        identifiers.insert(type->utiString());
        EXPECT_FALSE(type->label().isEmpty());
    }
    for (const char* uti : {"public.image", "public.text", "com.adobe.pdf", "public.movie", "public.audio",
                            "public.content", "public.message", "public.vcard", "public.folder", "com.apple.application",
                            "public.presentation", "com.apple.mail.emlx", "public.disk-image", "com.apple.alias-file",
                            "public.source-code", "com.apple.webarchive"}) {
        EXPECT_EQ(identifiers.count(QString::fromLatin1(uti)), 1u) << uti;
    }
    EXPECT_EQ(ContentTypeTransformer::sharedInstance()->lookup(QStringLiteral("public.image"))->label(),
              QStringLiteral("Images"));
    // An identifier the "Types" table does not name is its own label.
    EXPECT_EQ(ContentType(QStringLiteral("org.example.thing")).label(), QStringLiteral("org.example.thing"));
}

class FinderLabels : public ::testing::Test {
protected:
    void SetUp() override
    {
        QFile::remove(FinderLabelValue::preferencesFile());
        FinderLabelValue::resetLabelsForTesting();
    }
    void TearDown() override
    {
        QFile::remove(FinderLabelValue::preferencesFile());
        FinderLabelValue::resetLabelsForTesting();
    }
    static void writePreferences(const QByteArray& text)
    {
        const QString path = FinderLabelValue::preferencesFile();
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    static QStringList labels()
    {
        QStringList list;
        for (const FinderLabelValue* value : FinderLabelValue::finderLabelValues()) {
            list << value->label();
        }
        return list;
    }
};

TEST_F(FinderLabels, NineValuesSortedByNumberWithTheirColours)
{
    const auto& values = FinderLabelValue::finderLabelValues();
    ASSERT_EQ(values.size(), 9u);
    EXPECT_EQ(values[0]->number(), FinderLabelValue::kAnyLabel);
    EXPECT_FALSE(values[0]->color().has_value());
    EXPECT_EQ(values[1]->number(), 0);
    EXPECT_EQ(values[1]->color()->alpha, 0.0);
    EXPECT_EQ(values[6]->number(), 5);
    EXPECT_DOUBLE_EQ(values[6]->color()->red, 235 / 255.0);
    EXPECT_DOUBLE_EQ(values[6]->color()->green, 219 / 255.0);
    EXPECT_DOUBLE_EQ(values[6]->color()->blue, 65 / 255.0);
    EXPECT_EQ(values[6]->color()->alpha, 1.0);
    EXPECT_EQ(labels(), QStringList({"- Any", "- None", "Gray", "Green", "Purple", "Blue", "Yellow", "Red", "Orange"}));
    EXPECT_EQ(FinderLabelTransformer::sharedInstance()->lookup(6), values[7]);
    EXPECT_EQ(FinderLabelTransformer::sharedInstance()->lookup(FinderLabelValue::kAnyLabel), values[0]);
    EXPECT_EQ(FinderLabelTransformer::sharedInstance()->lookup(8), nullptr);
}

TEST_F(FinderLabels, ThePreferencesFileRenamesLabels)
{
    writePreferences("[General]\nLabel_Name_3=Clients\n");
    EXPECT_EQ(labels(), QStringList({"- Any", "- None", "Gray", "Green", "Clients", "Blue", "Yellow", "Red", "Orange"}));
    EXPECT_EQ(FinderLabelValue::finderLabelNames()[3], QStringLiteral("Clients"));
}

TEST_F(FinderLabels, AnEmptyOrOddFileLeavesTheDefaults)
{
    writePreferences("");
    EXPECT_EQ(FinderLabelValue::finderLabelNames(),
              QStringList({"None", "Gray", "Green", "Purple", "Blue", "Yellow", "Red", "Orange"}));
    // Out-of-range numbers are ignored; "0" renames the unused name 0 only.
    writePreferences("[General]\nLabel_Name_9=Nine\nLabel_Name_-1=Minus\nLabel_Name_0=Zero\n");
    EXPECT_EQ(FinderLabelValue::finderLabelNames(),
              QStringList({"Zero", "Gray", "Green", "Purple", "Blue", "Yellow", "Red", "Orange"}));
    EXPECT_EQ(labels()[1], QStringLiteral("- None"));
}

TEST_F(FinderLabels, NamesAreReadOnceAndCached)
{
    EXPECT_EQ(labels()[8], QStringLiteral("Orange"));
    writePreferences("[General]\nLabel_Name_7=Later\n");
    EXPECT_EQ(labels()[8], QStringLiteral("Orange"));
}

TEST(ValueTransformers, AreRegisteredByNameAndLookUpSharedInstances)
{
    registerModelTransformers();
    for (const char* name : {"booleanOperatorTransformer", "booleanValueTransformer", "contentTypeTransformer",
                             "relationalOperatorTransformer", "unitTransformer", "finderLabelTransformer",
                             "emptyArrayTransformer", "nonEmptyArrayTransformer"}) {
        EXPECT_NE(ValueTransformer::valueTransformerForName(QString::fromLatin1(name)), nullptr) << name;
    }
    const ValueTransformer* units = ValueTransformer::valueTransformerForName(QStringLiteral("unitTransformer"));
    const QVariant day = units->transformedValue(QStringLiteral("day"));
    EXPECT_EQ(day.value<const Value*>(), Unit::dayUnit());
    EXPECT_EQ(units->reverseTransformedValue(day), QVariant(QStringLiteral("day")));
    EXPECT_FALSE(units->transformedValue(QStringLiteral("fortnight")).isValid());
    EXPECT_FALSE(units->transformedValue(QVariant()).isValid());
    EXPECT_TRUE(units->allowsReverseTransformation());

    const ValueTransformer* booleans = ValueTransformer::valueTransformerForName(QStringLiteral("booleanValueTransformer"));
    EXPECT_EQ(booleans->transformedValue(true).value<const Value*>(), BooleanValue::yesValue());
    EXPECT_EQ(booleans->transformedValue(0).value<const Value*>(), BooleanValue::noValue());
    EXPECT_FALSE(booleans->transformedValue(QStringLiteral("yes")).isValid());

    const ValueTransformer* groups = ValueTransformer::valueTransformerForName(QStringLiteral("booleanOperatorTransformer"));
    EXPECT_EQ(groups->transformedValue(QStringLiteral("NOT")).value<const Value*>(), BooleanOperator::notOperator());
    EXPECT_FALSE(groups->transformedValue(QStringLiteral("not")).isValid());

    const ValueTransformer* empty = ValueTransformer::valueTransformerForName(QStringLiteral("emptyArrayTransformer"));
    EXPECT_TRUE(empty->transformedValue(QVariantList{}).toBool());
    EXPECT_FALSE(empty->transformedValue(QVariantList{1}).toBool());
    EXPECT_FALSE(empty->allowsReverseTransformation());
    EXPECT_TRUE(ValueTransformer::valueTransformerForName(QStringLiteral("nonEmptyArrayTransformer"))
                    ->transformedValue(QVariantList{1})
                    .toBool());
    EXPECT_EQ(ValueTransformer::valueTransformerForName(QStringLiteral("noSuchTransformer")), nullptr);
}

}  // namespace
}  // namespace trovara::model
