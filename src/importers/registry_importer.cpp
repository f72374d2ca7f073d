#include "importers/registry_importer.h"

namespace trovara::importers {

RegistryImporter::RegistryImporter(std::shared_ptr<const Registry> registry, std::uint64_t textLimit)
    : m_registry(std::move(registry))
    , m_textLimit(textLimit)
{
}

Expected<std::vector<index::ImporterInfo>> RegistryImporter::importers()
{
    return m_registry->infos();
}

Expected<void> RegistryImporter::importFiles(
    std::vector<index::ImportJob> jobs, const std::function<void(const index::ImportJob&, index::ImportOutcome&&)>& done,
    const std::atomic<bool>* cancel)
{
    std::uint64_t id = 0;
    for (const index::ImportJob& job : jobs) {
        if (cancel && cancel->load()) {
            break;
        }
        index::ImportRequest request;
        request.id = ++id;
        request.path = job.path;
        request.importer = job.importer;
        request.mimeType = job.mimeType;
        request.textLimit = m_textLimit;
        done(job, index::outcomeOf(m_registry->runImport(request)));
    }
    return {};
}

}  // namespace trovara::importers
