#include "index/import/content_importer.h"

#include <algorithm>
#include <limits>

namespace trovara::index {

ImportOutcome outcomeOf(ImportResult&& result)
{
    ImportOutcome outcome;
    outcome.imported = result.status == ImportStatus::Imported;
    outcome.mayRetry = result.status == ImportStatus::Exhausted;
    outcome.error = std::move(result.error);
    outcome.attributes = std::move(result.attributes);
    outcome.text = std::move(result.text);
    outcome.truncated = result.truncated;
    return outcome;
}

const ImporterInfo* chooseImporter(const std::vector<ImporterInfo>& importers, const TypeDescription& type)
{
    // Rank 0: the MIME type itself; rank k + 1: the k-th identifier of the
    // type tree (the type's own identifier first, then its ancestors).
    const ImporterInfo* best = nullptr;
    std::size_t bestRank = std::numeric_limits<std::size_t>::max();
    for (const ImporterInfo& importer : importers) {
        for (const std::string& served : importer.contentTypes) {
            std::size_t rank = std::numeric_limits<std::size_t>::max();
            if (served == type.mimeType) {
                rank = 0;
            } else if (auto it = std::find(type.tree.begin(), type.tree.end(), served); it != type.tree.end()) {
                rank = static_cast<std::size_t>(it - type.tree.begin()) + 1;
            }
            if (rank < bestRank) {
                bestRank = rank;
                best = &importer;
            }
        }
    }
    return best;
}

}  // namespace trovara::index
