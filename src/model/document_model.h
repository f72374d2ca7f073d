// The object model of a search document: its entities, attributes and
// relationships, under the model's version identifier. The stored form of
// every table and column is written down in docs/format/document.md; any
// change here that changes versionHash() needs a new model version and a
// migration.
#pragma once

#include "store/entity_description.h"
#include "store/managed_object_context.h"

#include <memory>

namespace trovara::model {

// The version of the current document model.
inline constexpr const char* kDocumentModelVersion = "Trovara 2";

// The current model, built once.
std::shared_ptr<const store::ManagedObjectModel> documentModel();

// A new, empty object graph for a document.
std::unique_ptr<store::ManagedObjectContext> makeDocumentContext();

// Fills a new document's store with its initial columns, limit attributes,
// visible columns and limit.
void primeContext(store::ManagedObjectContext& context);

}  // namespace trovara::model
