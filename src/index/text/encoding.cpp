#include "index/text/encoding.h"

#include "index/fs/file_bytes.h"
#include "index/text/folding.h"
#include "index/text/japanese_charset_guesser.h"
#include "index/text/utf8.h"

#include <cerrno>
#include <iconv.h>

namespace trovara::index::text {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

// Appends code points until the limit; remembers that it was cut.
class Output {
public:
    explicit Output(std::size_t limit)
        : m_limit(limit)
    {
    }
    bool full() const { return m_result.truncated; }
    void append(char32_t codePoint)
    {
        if (full()) {
            return;
        }
        const std::size_t before = m_result.text.size();
        appendUtf8(m_result.text, codePoint);
        cut(before);
    }
    void appendValidUtf8(std::string_view bytes)
    {
        if (full()) {
            return;
        }
        const std::size_t before = m_result.text.size();
        m_result.text.append(bytes);
        cut(before);
    }
    DecodedText take() { return std::move(m_result); }

private:
    void cut(std::size_t before)
    {
        if (m_result.text.size() <= m_limit) {
            return;
        }
        // Back to the last character boundary at or before the limit.
        std::size_t end = std::max(before, std::min(m_limit, m_result.text.size()));
        while (end > before && (static_cast<unsigned char>(m_result.text[end]) & 0xC0) == 0x80) {
            --end;
        }
        m_result.text.resize(end);
        m_result.truncated = true;
    }

    std::size_t m_limit;
    DecodedText m_result;
};

void decodeUtf8Bytes(std::string_view bytes, Output& out)
{
    if (bytes.starts_with(kUtf8Bom)) {
        bytes.remove_prefix(kUtf8Bom.size());
    }
    std::size_t runStart = 0;
    std::size_t offset = 0;
    while (offset < bytes.size() && !out.full()) {
        const std::size_t start = offset;
        if (decodeUtf8(bytes, offset) == kInvalidCodePoint) {
            out.appendValidUtf8(bytes.substr(runStart, start - runStart));
            out.append(kReplacement);
            runStart = offset;
        }
    }
    out.appendValidUtf8(bytes.substr(runStart, offset - runStart));
}

void decodeAscii(std::string_view bytes, Output& out)
{
    std::size_t runStart = 0;
    for (std::size_t i = 0; i < bytes.size() && !out.full(); ++i) {
        if (static_cast<unsigned char>(bytes[i]) >= 0x80) {
            out.appendValidUtf8(bytes.substr(runStart, i - runStart));
            out.append(kReplacement);
            runStart = i + 1;
        }
    }
    out.appendValidUtf8(bytes.substr(runStart));
}

void decodeUtf16(std::string_view bytes, bool littleEndian, Output& out)
{
    bytes.remove_prefix(2);  // the byte-order mark
    auto unit = [&](std::size_t i) -> char32_t {
        const auto a = static_cast<unsigned char>(bytes[i]);
        const auto b = static_cast<unsigned char>(bytes[i + 1]);
        return littleEndian ? (b << 8 | a) : (a << 8 | b);
    };
    std::size_t i = 0;
    for (; i + 1 < bytes.size() && !out.full(); i += 2) {
        const char32_t first = unit(i);
        if (first >= 0xD800 && first <= 0xDBFF && i + 3 < bytes.size()) {
            const char32_t second = unit(i + 2);
            if (second >= 0xDC00 && second <= 0xDFFF) {
                out.append(0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00));
                i += 2;
                continue;
            }
        }
        out.append(first >= 0xD800 && first <= 0xDFFF ? kReplacement : first);
    }
    if (i < bytes.size()) {
        out.append(kReplacement);  // an odd byte at the end
    }
}

// Through iconv, one pass, flushed at the end; what cannot be converted
// becomes U+FFFD and the conversion goes on after that byte. False when
// iconv does not know the charset.
bool convertWithIconv(std::string_view bytes, const char* charset, Output& out)
{
    iconv_t converter = ::iconv_open("UTF-8", charset);
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return false;
    }
    char buffer[16384];
    char* in = const_cast<char*>(bytes.data());
    std::size_t inLeft = bytes.size();
    bool flushing = false;
    while (!out.full()) {
        char* outPtr = buffer;
        std::size_t outLeft = sizeof buffer;
        const std::size_t result = flushing ? ::iconv(converter, nullptr, nullptr, &outPtr, &outLeft)
                                            : ::iconv(converter, &in, &inLeft, &outPtr, &outLeft);
        const int error = errno;
        out.appendValidUtf8(std::string_view(buffer, static_cast<std::size_t>(outPtr - buffer)));
        if (result != static_cast<std::size_t>(-1)) {
            if (flushing) {
                break;
            }
            flushing = inLeft == 0;
            continue;
        }
        if (error == E2BIG) {
            continue;
        }
        // EILSEQ (not valid here) or EINVAL (cut short at the end).
        out.append(kReplacement);
        if (inLeft == 0) {
            break;
        }
        ++in;
        --inLeft;
        ::iconv(converter, nullptr, nullptr, nullptr, nullptr);  // back to the initial shift state
    }
    ::iconv_close(converter);
    return true;
}

void decodeWithIconv(std::string_view bytes, const char* charset, Output& out)
{
    if (!convertWithIconv(bytes, charset, out)) {
        decodeAscii(bytes, out);  // the C library lacks the charset: keep what ASCII there is
    }
}

bool sameCharset(std::string_view a, std::string_view b)
{
    auto simplified = [](std::string_view name) {
        std::string out;
        for (const char c : name) {
            if (c != '-' && c != '_' && c != ' ') {
                out.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c));
            }
        }
        return out;
    };
    return simplified(a) == simplified(b);
}

}  // namespace

std::string_view encodingName(TextEncoding encoding)
{
    switch (encoding) {
    case TextEncoding::Ascii:
        return "ASCII";
    case TextEncoding::Utf8:
        return "UTF-8";
    case TextEncoding::Utf16LittleEndian:
        return "UTF-16LE";
    case TextEncoding::Utf16BigEndian:
        return "UTF-16BE";
    case TextEncoding::EucJp:
        return "EUC-JP";
    case TextEncoding::ShiftJis:
        return "Shift_JIS";
    case TextEncoding::Iso2022Jp:
        return "ISO-2022-JP";
    }
    return "ASCII";
}

TextEncoding detectEncoding(std::string_view bytes)
{
    if (bytes.empty() || bytes.front() == '\0') {
        return TextEncoding::Ascii;
    }
    if (bytes.starts_with("\xFF\xFE")) {
        return TextEncoding::Utf16LittleEndian;
    }
    if (bytes.starts_with("\xFE\xFF")) {
        return TextEncoding::Utf16BigEndian;
    }
    const std::optional<std::string_view> guess = JapaneseCharsetGuesser::guess(bytes);
    if (guess == "EUC-JP") {
        return TextEncoding::EucJp;
    }
    if (guess == "UTF-8") {
        return TextEncoding::Utf8;
    }
    if (guess == "Shift_JIS") {
        return TextEncoding::ShiftJis;
    }
    if (guess == "ISO-2022-JP") {
        return TextEncoding::Iso2022Jp;
    }
    return TextEncoding::Ascii;
}

DecodedText decodeText(std::string_view bytes, TextEncoding encoding, std::size_t limit)
{
    Output out(limit);
    switch (encoding) {
    case TextEncoding::Ascii:
        decodeAscii(bytes, out);
        break;
    case TextEncoding::Utf8:
        decodeUtf8Bytes(bytes, out);
        break;
    case TextEncoding::Utf16LittleEndian:
    case TextEncoding::Utf16BigEndian:
        if (bytes.size() >= 2) {
            decodeUtf16(bytes, encoding == TextEncoding::Utf16LittleEndian, out);
        }
        break;
    case TextEncoding::EucJp:
        // Pure ASCII reads as EUC-JP (see the guesser): it needs no converter.
        if (isAscii(bytes)) {
            out.appendValidUtf8(bytes);
        } else {
            decodeWithIconv(bytes, "EUC-JP", out);
        }
        break;
    case TextEncoding::ShiftJis:
        decodeWithIconv(bytes, "CP932", out);
        break;
    case TextEncoding::Iso2022Jp:
        decodeWithIconv(bytes, "ISO-2022-JP-3", out);
        break;
    }
    return out.take();
}

std::optional<DecodedText> decodeNamedCharset(std::string_view bytes, std::string_view charset, std::size_t limit)
{
    if (sameCharset(charset, "utf8") || sameCharset(charset, "usascii") || sameCharset(charset, "ascii")) {
        return decodeText(bytes, TextEncoding::Utf8, limit);  // ASCII is UTF-8
    }
    if (sameCharset(charset, "shiftjis") || sameCharset(charset, "sjis")) {
        return decodeText(bytes, TextEncoding::ShiftJis, limit);
    }
    Output out(limit);
    // Latin-1 labels mean windows-1252 in practice (as browsers read them).
    const std::string name = sameCharset(charset, "iso88591") || sameCharset(charset, "latin1")
                                 ? std::string("WINDOWS-1252")
                                 : std::string(charset);
    if (name.empty() || !convertWithIconv(bytes, name.c_str(), out)) {
        return std::nullopt;
    }
    return out.take();
}

Expected<DecodedText> readTextFile(const std::string& path, std::size_t limit)
{
    Expected<FileBytes> file = readFileBytes(path, limit);
    if (!file) {
        return file.error();
    }
    DecodedText decoded = decodeText(file->bytes, detectEncoding(file->bytes), limit);
    decoded.truncated = decoded.truncated || !file->complete;
    return decoded;
}

}  // namespace trovara::index::text
