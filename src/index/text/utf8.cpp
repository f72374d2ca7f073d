#include "index/text/utf8.h"

#include <string>

namespace trovara::index::text {

char32_t decodeUtf8(std::string_view text, std::size_t& offset)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(offset);
    if (lead < 0x80) {
        ++offset;
        return lead;
    }
    std::size_t length = 0;
    char32_t codePoint = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        codePoint = lead & 0x1F;
        minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        codePoint = lead & 0x0F;
        minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        codePoint = lead & 0x07;
        minimum = 0x10000;
    } else {
        ++offset;
        return kInvalidCodePoint;
    }
    if (offset + length > text.size()) {
        ++offset;
        return kInvalidCodePoint;
    }
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned char next = byte(offset + i);
        if ((next & 0xC0) != 0x80) {
            ++offset;
            return kInvalidCodePoint;
        }
        codePoint = (codePoint << 6) | (next & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are invalid.
    if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        ++offset;
        return kInvalidCodePoint;
    }
    offset += length;
    return codePoint;
}

std::size_t nextCodePointOffset(std::string_view text, std::size_t offset)
{
    decodeUtf8(text, offset);
    return offset;
}

void appendUtf8(std::string& out, char32_t codePoint)
{
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

std::size_t codePointCount(std::string_view text, std::size_t byteOffset)
{
    std::size_t count = 0;
    std::size_t offset = 0;
    while (offset < byteOffset && offset < text.size()) {
        decodeUtf8(text, offset);
        ++count;
    }
    return count;
}

}  // namespace trovara::index::text
