#include "index/text/folding.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace trovara::index::text {

namespace {

// Combining classes of marks that change which letter it is rather than
// decorate it; diacritic folding keeps them.
constexpr std::uint8_t kKanaVoicingClass = 8;
constexpr std::uint8_t kViramaClass = 9;

bool isDroppedMark(UChar32 c)
{
    const std::uint8_t combiningClass = u_getCombiningClass(c);
    return combiningClass != 0 && combiningClass != kKanaVoicingClass && combiningClass != kViramaClass;
}

void foldAscii(std::string_view text, FoldOptions options, std::string& out)
{
    out.assign(text);
    if (options.caseInsensitive) {
        for (char& ch : out) {
            if (ch >= 'A' && ch <= 'Z') {
                ch = static_cast<char>(ch - 'A' + 'a');
            }
        }
    }
}

}  // namespace

bool isAscii(std::string_view text)
{
    for (const char ch : text) {
        if (static_cast<unsigned char>(ch) >= 0x80) {
            return false;
        }
    }
    return true;
}

void foldTextInto(std::string_view text, FoldOptions options, std::string& out)
{
    if (isAscii(text)) {
        foldAscii(text, options, out);
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status)) {
        // ICU without its normalisation data: fall back to the text as given
        // rather than fail every comparison.
        out.assign(text);
        return;
    }
    // Invalid sequences become U+FFFD here.
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    if (options.caseInsensitive) {
        // Case folding is only closed under canonical equivalence on
        // decomposed text (NFD, fold, NFD again).
        unicode = nfd->normalize(unicode, status);
        unicode.foldCase(U_FOLD_CASE_DEFAULT);
    }
    if (options.diacriticInsensitive) {
        const icu::UnicodeString decomposed = nfd->normalize(unicode, status);
        unicode.remove();
        for (std::int32_t i = 0; i < decomposed.length();) {
            const UChar32 c = decomposed.char32At(i);
            if (!isDroppedMark(c)) {
                unicode.append(c);
            }
            i += U16_LENGTH(c);
        }
    } else if (options.caseInsensitive) {
        unicode = nfd->normalize(unicode, status);
    }
    unicode = nfc->normalize(unicode, status);
    if (U_FAILURE(status)) {
        out.assign(text);
        return;
    }
    out.clear();
    unicode.toUTF8String(out);
}

std::string foldText(std::string_view text, FoldOptions options)
{
    std::string out;
    foldTextInto(text, options, out);
    return out;
}

std::string foldForCatalogue(std::string_view text)
{
    return foldText(text, FoldOptions{.caseInsensitive = true, .diacriticInsensitive = true});
}

}  // namespace trovara::index::text
