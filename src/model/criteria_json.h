// Criteria trees written as JSON, the form the command-line tool takes:
//
//   group: {"operator": "AND" | "OR" | "NOT", "children": [ … ]}
//   row:   {"attribute": KEY, "operator": NAME, "string": …, "number": …,
//           "date": ISO 8601, "boolean": …, "unit": NAME}
//
// The top level is a group. A row's attribute is set as a person choosing it
// would (so a missing "operator" means the attribute's first applicable
// one); every other given field is stored exactly as it stands, without
// defaults or validation, so that any tree, odd rows included, can be
// written. Children take sort indexes 0, 1, 2 … in the order given. A date
// without an offset is local time ("2009-06-15" is local midnight).
#pragma once

#include "common/error.h"
#include "store/managed_object_context.h"

#include <QByteArray>
#include <QDateTime>

namespace trovara::model {

class QueryNode;

// Fills the context's root group from the JSON and returns it. A malformed
// document or a field of an unknown name or type is an error whose reason
// names the line and column; nothing of the tree is kept then.
Result<QueryNode*> readCriteriaJson(const QByteArray& json, store::ManagedObjectContext& context);

// The tree under `root` in the same form (dates in UTC).
QByteArray writeCriteriaJson(const QueryNode& root);

// ISO 8601: "2009-06-15" (local midnight), "2009-06-15T10:00[:00[.000]]"
// (local), and either with "Z" or an offset ("+02:00", "+0200", "+02").
// An invalid QDateTime when the text is none of these.
QDateTime parseIsoDate(const QString& text);

}  // namespace trovara::model
