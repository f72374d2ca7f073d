// What the query controller and its results need of the document that owns
// them: the document's object graph, where its columns, sort order and
// settings live. The search document implements it; tests and the
// command-line tool give a small one of their own.
#pragma once

#include "store/managed_object_context.h"

namespace trovara::query {

class QueryDocument {
public:
    virtual ~QueryDocument() = default;
    virtual store::ManagedObjectContext& managedObjectContext() = 0;
};

}  // namespace trovara::query
