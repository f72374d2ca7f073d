// The importers one helper process offers: plug-ins found in the importer
// folders (in folder order, then by file name), then the built-in ones. A
// plug-in that cannot be loaded, speaks another interface version or
// repeats a name already taken is left out and said in problems().
//
// Thread safety: built once, then read; runImport() is called for one file
// at a time.
#pragma once

#include "importers/importer.h"

#include <memory>
#include <string>
#include <vector>

namespace trovara::importers {

// ~/.local/lib/trovara/importers, /usr/local/lib/trovara/importers,
// /usr/lib/trovara/importers; or the folders of $TROVARA_IMPORTER_PATH.
std::vector<std::string> pluginFolders();

class Registry {
public:
    static Registry load(const std::vector<std::string>& pluginFolders);

    Registry(Registry&&) noexcept;
    Registry& operator=(Registry&&) noexcept;
    ~Registry();

    std::vector<index::ImporterInfo> infos() const;
    const std::vector<std::string>& problems() const { return m_problems; }

    // Runs the named importer on the file. Exceptions (and a failed
    // allocation) become a failed result, never an escape.
    index::ImportResult runImport(const index::ImportRequest& request) const;

private:
    Registry() = default;
    std::vector<std::unique_ptr<Importer>> m_importers;
    std::vector<void*> m_libraries;  // dlopen handles, closed last
    std::vector<std::string> m_problems;
};

}  // namespace trovara::importers
