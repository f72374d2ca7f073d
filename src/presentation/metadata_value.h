// Metadata values as the presentation layer and the result items hold them:
// the index's attribute values turned into QVariants. Text is a QString,
// numbers a double, Booleans a bool, dates a QDateTime in UTC, and a list a
// QVariantList of those.
#pragma once

#include "index/live/item_ref.h"
#include "index/query/item_view.h"

#include <QDateTime>
#include <QMetaType>
#include <QVariant>

Q_DECLARE_METATYPE(trovara::index::ItemRef)

namespace trovara::presentation {

QVariant variantFromScalar(const index::query::Scalar& scalar);
QVariant variantFromAttributeValue(const index::query::AttributeValue& value);

// A date given as seconds since 2001-01-01 00:00:00 UTC (millisecond precision).
QDateTime dateFromReferenceSeconds(double seconds);

}  // namespace trovara::presentation
