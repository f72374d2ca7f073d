#include "presentation/metadata_value.h"

#include "index/query/calendar.h"

#include <QTimeZone>

#include <cmath>

namespace trovara::presentation {

QDateTime dateFromReferenceSeconds(double seconds)
{
    const double milliseconds = std::round((seconds + index::query::kReferenceDateUnixSeconds) * 1000.0);
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(milliseconds), QTimeZone::utc());
}

QVariant variantFromScalar(const index::query::Scalar& scalar)
{
    return std::visit(
        [](const auto& value) -> QVariant {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, std::string>) {
                return QString::fromStdString(value);
            } else if constexpr (std::is_same_v<T, index::query::Date>) {
                return dateFromReferenceSeconds(value.seconds);
            } else {
                return value;
            }
        },
        scalar);
}

QVariant variantFromAttributeValue(const index::query::AttributeValue& value)
{
    if (!value.isList()) {
        return value.elements().empty() ? QVariant() : variantFromScalar(value.elements().front());
    }
    QVariantList list;
    list.reserve(static_cast<qsizetype>(value.elements().size()));
    for (const index::query::Scalar& element : value.elements()) {
        list.push_back(variantFromScalar(element));
    }
    return list;
}

}  // namespace trovara::presentation
