// What a result column shows and how it sorts, chosen from its attribute:
// the named formatters ("shortDate", "shortDateTime", "longDate",
// "longDateTime", "bytes", "finderLabel", "integer"), the choice of a
// column's formatter, and its sort prototype.
//
// installColumnPropertiesChooser() hands the choice to ColumnAttribute, so
// that every column attribute chooses again whenever its properties are
// refreshed; the application and the tools install it at start-up.
//
// The registry and the formatters are built once, on first use, and never
// change; use them from the main thread.
#pragma once

#include "model/abstract_attribute.h"
#include "presentation/sort_descriptor.h"

#include <map>
#include <memory>

namespace trovara::presentation {

using FormatterRegistry = std::map<QString, std::shared_ptr<const model::Formatter>>;

// The named formatters.
const FormatterRegistry& customFormatters();
// The formatter that the column description of the key names (through
// ColumnAttribute::customColumnAttributes()), or none.
std::shared_ptr<const model::Formatter> customFormatterForKey(const QString& key);

// A named formatter; else by type: dates short date and short time,
// Booleans "0;0;-0" (1 and 0), numbers "0.0000;0.0000;-0.0000", other
// types none. A multi-valued attribute wraps whatever was chosen (even
// none) in a MultivalueFormatter.
std::shared_ptr<const model::Formatter> columnFormatterFor(const model::AbstractAttribute& attribute);

// Ascending on the attribute key ("key.@firstObject" when multi-valued),
// texts in the locale-aware case-insensitive order, everything else in the
// default order.
SortDescriptor sortDescriptorPrototypeFor(const model::AbstractAttribute& attribute);

// Sets both on the column.
void chooseColumnProperties(model::ColumnAttribute& column);
void installColumnPropertiesChooser();

}  // namespace trovara::presentation
