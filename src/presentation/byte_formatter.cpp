#include "presentation/byte_formatter.h"

#include "model/localization.h"
#include "model/platform.h"
#include "model/value_text.h"
#include "presentation/text_format.h"

namespace trovara::presentation {

ByteFormatter::ByteFormatter()
    : NumberFormatter(QStringLiteral("0.000;0.000;-0.000"))
{
}

QString ByteFormatter::stringForObjectValue(const QVariant& value) const
{
    if (!value.isValid() || value.isNull()) {
        return {};
    }
    double size = 0;
    if (model::isNumber(value)) {
        size = model::doubleValueOf(value);
    } else {
        // The parser has no error text to offer: a text that is no number
        // shows nothing.
        const std::optional<double> parsed = numberFromString(model::descriptionOf(value));
        if (!parsed) {
            return {};
        }
        size = *parsed;
    }
    const double base = model::platform::byteUnitBase();
    const char* unit = "%@ Bytes";
    if (size > base) {
        size /= base;
        unit = "%@ KB";
        if (size > base) {
            size /= base;
            unit = "%@ MB";
            if (size > base) {
                size /= base;
                unit = "%@ GB";
            }
        }
    }
    return stringWithFormat(model::localized(QString::fromLatin1(unit)), {stringFromNumber(size)});
}

}  // namespace trovara::presentation
