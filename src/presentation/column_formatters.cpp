#include "presentation/column_formatters.h"

#include "presentation/byte_formatter.h"
#include "presentation/date_formatter.h"
#include "presentation/finder_label_formatter.h"
#include "presentation/multivalue_formatter.h"
#include "presentation/number_formatter.h"

namespace trovara::presentation {

namespace {

const std::shared_ptr<const model::Formatter>& columnDateFormatter()
{
    static const std::shared_ptr<const model::Formatter> formatter =
        std::make_shared<DateFormatter>(DateStyle::Short, DateStyle::Short);
    return formatter;
}

const std::shared_ptr<const model::Formatter>& columnBooleanFormatter()
{
    static const std::shared_ptr<const model::Formatter> formatter =
        std::make_shared<NumberFormatter>(QStringLiteral("0;0;-0"));
    return formatter;
}

const std::shared_ptr<const model::Formatter>& columnNumberFormatter()
{
    static const std::shared_ptr<const model::Formatter> formatter =
        std::make_shared<NumberFormatter>(QStringLiteral("0.0000;0.0000;-0.0000"));
    return formatter;
}

}  // namespace

const FormatterRegistry& customFormatters()
{
    static const FormatterRegistry registry{
        {QStringLiteral("shortDate"), std::make_shared<DateFormatter>(DateStyle::Short, DateStyle::None)},
        {QStringLiteral("shortDateTime"), std::make_shared<DateFormatter>(DateStyle::Short, DateStyle::Short)},
        {QStringLiteral("longDate"), std::make_shared<DateFormatter>(DateStyle::Long, DateStyle::None)},
        {QStringLiteral("longDateTime"), std::make_shared<DateFormatter>(DateStyle::Long, DateStyle::Long)},
        {QStringLiteral("bytes"), std::make_shared<ByteFormatter>()},
        {QStringLiteral("finderLabel"), std::make_shared<FinderLabelFormatter>()},
        {QStringLiteral("integer"), std::make_shared<NumberFormatter>(QStringLiteral("0;0;-0"))},
    };
    return registry;
}

std::shared_ptr<const model::Formatter> customFormatterForKey(const QString& key)
{
    const QString name = model::ColumnAttribute::customFormatterNameForKey(key);
    if (name.isEmpty()) {
        return {};
    }
    const FormatterRegistry& registry = customFormatters();
    auto it = registry.find(name);
    return it == registry.end() ? nullptr : it->second;
}

std::shared_ptr<const model::Formatter> columnFormatterFor(const model::AbstractAttribute& attribute)
{
    std::shared_ptr<const model::Formatter> formatter = customFormatterForKey(attribute.attributeKey());
    if (!formatter) {
        if (attribute.isDateType()) {
            formatter = columnDateFormatter();
        } else if (attribute.isBooleanType()) {
            formatter = columnBooleanFormatter();
        } else if (attribute.isNumberType()) {
            formatter = columnNumberFormatter();
        }
    }
    if (attribute.isMultivaluedType()) {
        formatter = std::make_shared<MultivalueFormatter>(std::move(formatter));
    }
    return formatter;
}

SortDescriptor sortDescriptorPrototypeFor(const model::AbstractAttribute& attribute)
{
    SortDescriptor prototype;
    prototype.key = attribute.isMultivaluedType() ? attribute.attributeKey() + QStringLiteral(".@firstObject")
                                                  : attribute.attributeKey();
    prototype.ascending = true;
    prototype.comparison = attribute.isStringType() ? SortDescriptor::Comparison::LocalizedCaseInsensitive
                                                    : SortDescriptor::Comparison::Default;
    return prototype;
}

void chooseColumnProperties(model::ColumnAttribute& column)
{
    column.setFormatter(columnFormatterFor(column));
    column.setSortDescriptorPrototype(sortDescriptorPrototypeFor(column).toStoreSortDescriptor());
}

void installColumnPropertiesChooser()
{
    model::ColumnAttribute::setPropertiesChooser(&chooseColumnProperties);
}

}  // namespace trovara::presentation
