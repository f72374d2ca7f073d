// A small object model for testing the object store on its own: folders
// that hold files (cascade) and tags that files point to (nullify).
#pragma once

#include "store/managed_object_context.h"

#include <memory>

namespace trovara::store::test {

class Folder final : public ManagedObject {
public:
    static constexpr const char* kEntityName = "Folder";
};

class File final : public ManagedObject {
public:
    static constexpr const char* kEntityName = "File";
    int awakeFromInsertCalls = 0;
    int awakeFromFetchCalls = 0;

protected:
    void awakeFromInsert() override { ++awakeFromInsertCalls; }
    void awakeFromFetch() override { ++awakeFromFetchCalls; }
};

// Item (abstract: name, rank, parent) → Folder (children, cascade) and File
// (size, modified, data, ratio, tag); Tag (label, files, nullify).
std::shared_ptr<const ManagedObjectModel> testModel();

}  // namespace trovara::store::test
