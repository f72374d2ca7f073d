// The first document model ("Trovara 1") and the migration of a graph read
// with it into the current model. docs/format/document.md describes the
// first model's tables and how each entity is carried over.
#pragma once

#include "common/error.h"
#include "store/managed_object_context.h"

#include <memory>

namespace trovara::document {

// The version identifier of the first model.
inline constexpr const char* kFirstDocumentModelVersion = "Trovara 1";

// The settings in which first-model documents kept their visible columns;
// both hold a compact UTF-8 JSON array (identifiers; widths).
inline constexpr const char* kResultColumnsKey = "resultColumns";
inline constexpr const char* kResultColumnWidthsKey = "resultColumnWidths";

// A new current-model graph with everything of `source` (a graph of the
// first model) carried over, and the limit and visible columns the first
// model did not have filled in.
std::unique_ptr<store::ManagedObjectContext> migrateFromFirstModel(const store::ManagedObjectContext& source);

}  // namespace trovara::document
