#include "index/text_tokens.h"

#include "index/text/folding.h"
#include "index/text/word_splitter.h"

#include <vector>

namespace trovara::index {

std::string_view cutAtCharacter(std::string_view folded, std::size_t limit)
{
    if (folded.size() <= limit) {
        return folded;
    }
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(folded[end]) & 0xC0) == 0x80) {
        --end;
    }
    return folded.substr(0, end);
}

bool forEachTerm(std::string_view text, bool withSuffixRuns,
                 const std::function<bool(std::string_view term, bool colocated)>& term)
{
    constexpr text::FoldOptions kFold{.caseInsensitive = true, .diacriticInsensitive = true};
    bool going = true;
    std::string folded;
    std::string whole;
    std::vector<std::size_t> partStarts;
    text::forEachWord(text, [&](const text::Word& word) {
        if (!going) {
            return;
        }
        whole.clear();
        partStarts.clear();
        for (const std::string_view part : word.parts()) {
            partStarts.push_back(whole.size());
            text::foldTextInto(part, kFold, folded);
            whole += folded;
        }
        if (whole.empty()) {
            return;  // nothing but marks that folding drops
        }
        going = term(cutAtCharacter(whole, kMaxTermBytes), false);
        if (!withSuffixRuns) {
            return;
        }
        for (std::size_t p = 1; going && p < partStarts.size(); ++p) {
            const std::string_view run = std::string_view(whole).substr(partStarts[p]);
            if (!run.empty()) {
                going = term(cutAtCharacter(run, kMaxTermBytes), true);
            }
        }
    });
    return going;
}

}  // namespace trovara::index
