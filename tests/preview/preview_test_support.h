// Helpers shared by the preview tests.
#pragma once

#include "index/import/content_importer.h"
#include "preview/search_term_matcher.h"

#include <QString>

#include <chrono>
#include <functional>
#include <map>
#include <ostream>
#include <string>

namespace trovara::preview {

inline void PrintTo(const TermMatch& match, std::ostream* out)
{
    *out << "{" << match.start << ", " << match.length << ", term " << match.term << "}";
}

}  // namespace trovara::preview

namespace trovara::preview::test {

// Runs the event loop until `done` answers true; false if it has not within
// `limit` (a bound against hanging, never a measure of speed).
bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(20));

// Writes `bytes` to `name` in `folder`; the path.
std::string writeFile(const QString& folder, const std::string& name, const std::string& bytes);

// Offers a few importers and answers as told, recording what it was asked:
// by default every importer reads "text from NAME".
class ScriptedImporter final : public index::ContentImporter {
public:
    index::Expected<std::vector<index::ImporterInfo>> importers() override;
    index::Expected<void> importFiles(std::vector<index::ImportJob> jobs,
                                      const std::function<void(const index::ImportJob&, index::ImportOutcome&&)>& done,
                                      const std::atomic<bool>* cancel) override;

    std::vector<index::ImporterInfo> offered{
        {"plug", "1", "/plug.so", {"public.plain-text"}},
        {"pdf", "1", "", {"application/pdf"}},
        {"text", "1", "", {"public.text"}},
        {"any", "1", "", {"public.data"}},
    };
    std::map<std::string, index::ImportOutcome> answers;
    std::vector<std::string> asked;
    bool unavailable = false;
};

}  // namespace trovara::preview::test
