// Text normalisation shared by the catalogue and the query evaluator.
//
// The index stores names pre-folded with foldForCatalogue() and the evaluator
// folds both sides of every text comparison with foldText(); both must agree
// byte for byte, so every folded form in Trovara comes from here.
//
// What folding does, in this order:
//   1. invalid UTF-8 sequences become U+FFFD;
//   2. with case folding: full Unicode case folding in its language-neutral
//      form ("ß" and "ẞ" become "ss", "ﬁ" becomes "fi", "İ" becomes "i" plus a
//      combining dot; the Turkish dotless "ı" stays apart from "i");
//   3. with diacritic folding: canonical decomposition, then every combining
//      mark with a non-zero combining class is dropped ("é" becomes "e"),
//      except the kana voicing marks and the viramas, which make a different
//      letter rather than decorate one (が stays が);
//   4. always: canonical composition (NFC), so precomposed and decomposed
//      spellings of the same text fold to the same bytes.
// No compatibility mapping happens: full-width and half-width forms stay
// distinct from their ordinary forms (apart from what case folding does).
//
// Thread safety: all functions are reentrant. Pure ASCII input takes a fast
// path that does not touch ICU.
#pragma once

#include <string>
#include <string_view>

namespace trovara::index::text {

struct FoldOptions {
    bool caseInsensitive = false;
    bool diacriticInsensitive = false;

    bool operator==(const FoldOptions&) const = default;
};

// The folded form of UTF-8 text (see above), as UTF-8.
std::string foldText(std::string_view text, FoldOptions options);

// As foldText(), writing into `out` (replacing its contents) so that a caller
// folding many values can reuse one buffer.
void foldTextInto(std::string_view text, FoldOptions options, std::string& out);

// The case- and diacritic-folded form the catalogue stores for names.
std::string foldForCatalogue(std::string_view text);

// Whether every byte is below 0x80.
bool isAscii(std::string_view text);

}  // namespace trovara::index::text
