// The importers of a Registry run in this very process, seen as a
// ContentImporter: what a helper process uses to read files itself (the
// text preview's helper). Never use it outside a helper: a crashing
// importer takes the process with it.
//
// Thread safety: one thread at a time, as every ContentImporter.
#pragma once

#include "importers/registry.h"
#include "index/import/content_importer.h"

#include <memory>

namespace trovara::importers {

class RegistryImporter final : public index::ContentImporter {
public:
    RegistryImporter(std::shared_ptr<const Registry> registry, std::uint64_t textLimit);

    Expected<std::vector<index::ImporterInfo>> importers() override;
    Expected<void> importFiles(std::vector<index::ImportJob> jobs,
                               const std::function<void(const index::ImportJob&, index::ImportOutcome&&)>& done,
                               const std::atomic<bool>* cancel = nullptr) override;

private:
    std::shared_ptr<const Registry> m_registry;
    std::uint64_t m_textLimit;
};

}  // namespace trovara::importers
