// The value fields of criteria lines: what they read and show, in the
// user's locale and time zone, and what they do with text that does not
// read.
#include "editors/rule_value_field.h"
#include "editors/value_container.h"

#include "test_support.h"

#include <QLocale>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

using editors::RuleValueField;
using editors::ValueContainer;
using Kind = RuleValueField::Kind;

// Sets the default locale for the life of the object.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* name) { QLocale::setDefault(QLocale(QString::fromLatin1(name))); }
    ~ScopedLocale() { QLocale::setDefault(QLocale::c()); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;
};

struct Field {
    explicit Field(Kind kind)
        : values(std::make_shared<ValueContainer>())
        , field(RuleValueField::make(kind, values))
    {
    }
    std::shared_ptr<ValueContainer> values;
    std::unique_ptr<RuleValueField> field;
};

struct ReadCase {
    Kind kind;
    const char* locale;
    const char* typed;
    QVariant stored;  // invalid: none
    bool reads;
};

TEST(RuleValueFieldTest, TypedTextIsReadInTheUsersLocale)
{
    const ReadCase cases[] = {
        {Kind::NumberField, "en_US", "12.5", 12.5, true},
        {Kind::NumberField, "en_US", "1,250.5", 1250.5, true},
        {Kind::NumberField, "de_DE", "12,5", 12.5, true},
        {Kind::NumberField, "de_DE", "12.5", 12.5, true},  // a full stop always reads
        {Kind::NumberField, "en_US", " -3 ", -3.0, true},
        {Kind::NumberField, "en_US", "", QVariant(), true},
        {Kind::NumberField, "en_US", "12abc", QVariant(), false},
        {Kind::NumberField, "en_US", "inf", QVariant(), false},
        {Kind::DateField, "en_US", "3", 3, true},
        {Kind::DateField, "en_US", "0", 0, true},
        {Kind::DateField, "en_US", "-1", QVariant(), false},
        {Kind::DateField, "en_US", "2.5", QVariant(), false},
        {Kind::DateField, "en_US", "three", QVariant(), false},
        {Kind::StringField, "en_US", "O'Brien\\x", QStringLiteral("O'Brien\\x"), true},
        {Kind::StringField, "en_US", "", QString(QLatin1String("")), true},
        {Kind::Boolean, "en_US", "No", false, true},
        {Kind::Boolean, "en_US", "maybe", QVariant(), false},
    };
    for (const ReadCase& c : cases) {
        SCOPED_TRACE(std::string(c.locale) + " '" + c.typed + "' as " + RuleValueField::nameOf(c.kind).toStdString());
        ScopedLocale locale(c.locale);
        Field f(c.kind);
        f.field->setText(QString::fromUtf8(c.typed));
        EXPECT_EQ(f.field->isValid(), c.reads);
        EXPECT_EQ(f.field->errorText().isEmpty(), c.reads);
        EXPECT_EQ(f.field->text(), QString::fromUtf8(c.typed));  // nothing typed is lost
        const QVariant stored = c.kind == Kind::StringField ? f.values->queryString()
                                : c.kind == Kind::Boolean   ? f.values->queryBoolean()
                                                            : f.values->queryNumber();
        if (c.stored.isValid()) {
            EXPECT_EQ(stored, c.stored);
        } else {
            EXPECT_FALSE(stored.isValid());
        }
    }
}

TEST(RuleValueFieldTest, StoredValuesAreShownInTheUsersLocale)
{
    ScopedLocale locale("de_DE");
    Field number(Kind::NumberField);
    number.values->setQueryNumber(1.5);
    EXPECT_EQ(number.field->text(), QStringLiteral("1,50"));
    Field count(Kind::DateField);
    count.values->setQueryNumber(12);
    EXPECT_EQ(count.field->text(), QStringLiteral("12"));
    Field flag(Kind::Boolean);
    auto* matrix = static_cast<editors::RuleBooleanMatrix*>(flag.field.get());
    EXPECT_EQ(matrix->titles(), (QStringList{"Yes", "No"}));
    EXPECT_EQ(matrix->selectedIndex(), -1);
    flag.values->setQueryBoolean(true);
    EXPECT_EQ(matrix->selectedIndex(), 0);
    matrix->setSelectedIndex(1);
    EXPECT_EQ(flag.values->queryBoolean(), QVariant(false));
}

TEST(RuleValueFieldTest, TypedTextStaysAsTypedUntilItsValueChangesElsewhere)
{
    Field f(Kind::NumberField);
    f.field->setText(QStringLiteral("5.0"));
    EXPECT_EQ(f.field->text(), QStringLiteral("5.0"));
    // Another value of the container changes: the typed text stays, even
    // when it does not read.
    f.field->setText(QStringLiteral("5x"));
    f.values->setQueryUnit(QStringLiteral("MB"));
    EXPECT_EQ(f.field->text(), QStringLiteral("5x"));
    EXPECT_FALSE(f.field->isValid());
    // Its own value changes (undo, say): the field shows it.
    f.values->setQueryNumber(7);
    EXPECT_EQ(f.field->text(), QStringLiteral("7.00"));
    EXPECT_TRUE(f.field->isValid());
}

TEST(RuleValueFieldTest, EveryKindHasItsNameSizeAndAction)
{
    EXPECT_EQ(RuleValueField::nameOf(Kind::DatePicker), QStringLiteral("datepicker"));
    EXPECT_EQ(RuleValueField::nameOf(Kind::Boolean), QStringLiteral("boolean"));
    EXPECT_EQ(RuleValueField::nameOf(Kind::NumberField), QStringLiteral("numberfield"));
    EXPECT_EQ(RuleValueField::nameOf(Kind::DateField), QStringLiteral("datefield"));
    EXPECT_EQ(RuleValueField::nameOf(Kind::StringField), QStringLiteral("stringfield"));
    EXPECT_EQ(Field(Kind::StringField).field->frameSize(), QSize(300, 20));
    EXPECT_EQ(Field(Kind::NumberField).field->frameSize(), QSize(30, 20));
    EXPECT_EQ(Field(Kind::DatePicker).field->frameSize(), QSize(120, 22));
    Field f(Kind::StringField);
    int started = 0;
    f.field->setAction([&] { ++started; });
    f.field->performAction();
    EXPECT_EQ(started, 1);
}

TEST(RuleValueFieldTest, ADatePickerWithoutADateStartsAtToday)
{
    Field f(Kind::DatePicker);
    auto* picker = static_cast<editors::RuleDatePicker*>(f.field.get());
    EXPECT_EQ(picker->date(), QDate::currentDate());
    EXPECT_FALSE(picker->text().isEmpty());
}

TEST(RuleValueFieldTest, DaysAreReadInTheLocaleOrAsIsoAndImpossibleDaysAreRefused)
{
    ScopedLocale locale("en_US");
    ScopedTimeZone zone("UTC");
    Field f(Kind::DatePicker);
    auto* picker = static_cast<editors::RuleDatePicker*>(f.field.get());
    picker->setText(QStringLiteral("6/15/2009"));
    EXPECT_EQ(picker->date(), QDate(2009, 6, 15));
    picker->setText(QStringLiteral("2010-01-31"));
    EXPECT_EQ(picker->date(), QDate(2010, 1, 31));
    EXPECT_EQ(picker->text(), QStringLiteral("2010-01-31"));
    picker->setText(QStringLiteral("2/30/2023"));
    EXPECT_FALSE(picker->isValid());
    EXPECT_EQ(picker->date(), QDate(2010, 1, 31));
    picker->setDate(QDate(2023, 2, 28));
    EXPECT_TRUE(picker->isValid());
    EXPECT_EQ(picker->text(), QStringLiteral("2/28/2023"));
}

TEST(RuleValueFieldTest, ADayKeepsItsTimeOfDayUnlessThatTimeDoesNotExistThatDay)
{
    {
        // Clocks went from 00:00 to 01:00 on 4 November 2018 in São Paulo:
        // the day has no midnight, and is still the day chosen.
        ScopedTimeZone zone("America/Sao_Paulo");
        const QDateTime previous(QDate(2018, 10, 1), QTime(0, 30), Qt::LocalTime);
        const QDateTime moment = editors::RuleDatePicker::momentForDay(QDate(2018, 11, 4), previous);
        EXPECT_EQ(moment.toLocalTime().date(), QDate(2018, 11, 4));
        EXPECT_EQ(moment.toLocalTime().time(), QTime(1, 0));
        EXPECT_EQ(moment.timeSpec(), Qt::UTC);
    }
    {
        // 02:30 does not exist on 28 March 2021 in Berlin.
        ScopedTimeZone zone("Europe/Berlin");
        const QDateTime lateNight(QDate(2021, 3, 1), QTime(2, 30), Qt::LocalTime);
        EXPECT_EQ(editors::RuleDatePicker::momentForDay(QDate(2021, 3, 28), lateNight).toLocalTime(),
                  QDateTime(QDate(2021, 3, 28), QTime(0, 0), Qt::LocalTime));
        const QDateTime noon(QDate(2021, 3, 1), QTime(12, 0), Qt::LocalTime);
        EXPECT_EQ(editors::RuleDatePicker::momentForDay(QDate(2021, 3, 28), noon).toLocalTime(),
                  QDateTime(QDate(2021, 3, 28), QTime(12, 0), Qt::LocalTime));
        EXPECT_EQ(editors::RuleDatePicker::momentForDay(QDate(2021, 10, 31), {}).toLocalTime().date(),
                  QDate(2021, 10, 31));
    }
}

TEST(ValueContainerTest, SettersAskForAnUpdateOnlyWhileUpdatesAreOn)
{
    ValueContainer values;
    int updates = 0;
    values.setUpdateFunction([&](ValueContainer&) { ++updates; });
    values.setQueryString(QStringLiteral("loaded"));
    EXPECT_EQ(updates, 0);
    values.setShouldUpdatePredicate(true);
    values.setQueryNumber(5);
    values.setQueryUnit(QStringLiteral("MB"));
    EXPECT_EQ(updates, 2);
    const QString description = values.description();
    EXPECT_TRUE(description.startsWith(QStringLiteral("<ValueContainer 0x")));
    EXPECT_TRUE(description.endsWith(QStringLiteral(", queryNumber:5, queryString:loaded, queryUnit:MB")))
        << description.toStdString();
}

}  // namespace
}  // namespace trovara::test
