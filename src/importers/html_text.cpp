#include "importers/html_text.h"

#include "index/text/utf8.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace trovara::importers {

namespace {

struct NamedReference {
    std::string_view name;
    char32_t codePoint;
};

// The references pages use in practice: markup, the Latin-1 letters and
// signs, typographic punctuation. Sorted by name.
constexpr NamedReference kReferences[] = {
    {"AElig", 0xC6},  {"Aacute", 0xC1},  {"Acirc", 0xC2},  {"Agrave", 0xC0},  {"Aring", 0xC5},  {"Atilde", 0xC3},
    {"Auml", 0xC4},   {"Ccedil", 0xC7},  {"Dagger", 0x2021}, {"ETH", 0xD0},   {"Eacute", 0xC9},  {"Ecirc", 0xCA},
    {"Egrave", 0xC8}, {"Euml", 0xCB},    {"Iacute", 0xCD}, {"Icirc", 0xCE},   {"Igrave", 0xCC},  {"Iuml", 0xCF},
    {"Ntilde", 0xD1}, {"OElig", 0x152},  {"Oacute", 0xD3}, {"Ocirc", 0xD4},   {"Ograve", 0xD2},  {"Oslash", 0xD8},
    {"Otilde", 0xD5}, {"Ouml", 0xD6},    {"Prime", 0x2033}, {"Scaron", 0x160}, {"THORN", 0xDE},  {"Uacute", 0xDA},
    {"Ucirc", 0xDB},  {"Ugrave", 0xD9},  {"Uuml", 0xDC},   {"Yacute", 0xDD},  {"Yuml", 0x178},   {"aacute", 0xE1},
    {"acirc", 0xE2},  {"acute", 0xB4},   {"aelig", 0xE6},  {"agrave", 0xE0},  {"alpha", 0x3B1},  {"amp", 0x26},
    {"apos", 0x27},   {"aring", 0xE5},   {"asymp", 0x2248}, {"atilde", 0xE3}, {"auml", 0xE4},    {"bdquo", 0x201E},
    {"beta", 0x3B2},  {"brvbar", 0xA6},  {"bull", 0x2022}, {"ccedil", 0xE7},  {"cedil", 0xB8},   {"cent", 0xA2},
    {"circ", 0x2C6},  {"copy", 0xA9},    {"curren", 0xA4}, {"dagger", 0x2020}, {"darr", 0x2193}, {"deg", 0xB0},
    {"delta", 0x3B4}, {"divide", 0xF7},  {"eacute", 0xE9}, {"ecirc", 0xEA},   {"egrave", 0xE8},  {"emsp", 0x2003},
    {"ensp", 0x2002}, {"eth", 0xF0},     {"euml", 0xEB},   {"euro", 0x20AC},  {"fnof", 0x192},   {"frac12", 0xBD},
    {"frac14", 0xBC}, {"frac34", 0xBE},  {"gamma", 0x3B3}, {"ge", 0x2265},    {"gt", 0x3E},      {"harr", 0x2194},
    {"hellip", 0x2026}, {"iacute", 0xED}, {"icirc", 0xEE}, {"iexcl", 0xA1},   {"igrave", 0xEC},  {"infin", 0x221E},
    {"iquest", 0xBF}, {"iuml", 0xEF},    {"laquo", 0xAB},  {"larr", 0x2190},  {"ldquo", 0x201C}, {"le", 0x2264},
    {"lrm", 0x200E},  {"lsaquo", 0x2039}, {"lsquo", 0x2018}, {"lt", 0x3C},    {"macr", 0xAF},    {"mdash", 0x2014},
    {"micro", 0xB5},  {"middot", 0xB7},  {"minus", 0x2212}, {"mu", 0x3BC},    {"nbsp", 0xA0},    {"ndash", 0x2013},
    {"ne", 0x2260},   {"not", 0xAC},     {"ntilde", 0xF1}, {"oacute", 0xF3},  {"ocirc", 0xF4},   {"oelig", 0x153},
    {"ograve", 0xF2}, {"omega", 0x3C9},  {"ordf", 0xAA},   {"ordm", 0xBA},    {"oslash", 0xF8},  {"otilde", 0xF5},
    {"ouml", 0xF6},   {"para", 0xB6},    {"permil", 0x2030}, {"pi", 0x3C0},   {"plusmn", 0xB1},  {"pound", 0xA3},
    {"prime", 0x2032}, {"quot", 0x22},   {"raquo", 0xBB},  {"rarr", 0x2192},  {"rdquo", 0x201D}, {"reg", 0xAE},
    {"rlm", 0x200F},  {"rsaquo", 0x203A}, {"rsquo", 0x2019}, {"sbquo", 0x201A}, {"scaron", 0x161}, {"sect", 0xA7},
    {"shy", 0xAD},    {"sigma", 0x3C3},  {"sup1", 0xB9},   {"sup2", 0xB2},    {"sup3", 0xB3},    {"szlig", 0xDF},
    {"thinsp", 0x2009}, {"thorn", 0xFE}, {"tilde", 0x2DC}, {"times", 0xD7},   {"trade", 0x2122}, {"uacute", 0xFA},
    {"uarr", 0x2191}, {"ucirc", 0xFB},   {"ugrave", 0xF9}, {"uml", 0xA8},     {"uuml", 0xFC},    {"yacute", 0xFD},
    {"yen", 0xA5},    {"yuml", 0xFF},    {"zwj", 0x200D},  {"zwnj", 0x200C},
};

// Elements whose content is not text a reader sees.
constexpr std::string_view kSkippedElements[] = {"script", "style", "template", "noscript", "svg", "math"};

// Elements that do not separate words: "<b>re</b>port" is one word.
constexpr std::string_view kInlineElements[] = {"a",    "abbr", "b",      "bdi",  "bdo",   "big", "cite", "code",
                                                "data", "del",  "dfn",    "em",   "font",  "i",   "ins",  "kbd",
                                                "mark", "q",    "s",      "samp", "small", "span", "strike", "strong",
                                                "sub",  "sup",  "time",   "tt",   "u",     "var", "wbr"};

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

// Position of `needle` (ASCII, lower case) in `text` from `from`, any case.
std::size_t findIgnoringCase(std::string_view text, std::string_view needle, std::size_t from)
{
    for (std::size_t i = from; i + needle.size() <= text.size(); ++i) {
        if (lower(text[i]) == needle[0] && equalsIgnoringCase(text.substr(i, needle.size()), needle)) {
            return i;
        }
    }
    return std::string_view::npos;
}

struct Tag {
    std::string name;  // lower case
    bool closing = false;
    std::vector<std::pair<std::string, std::string>> attributes;  // names lower case, values decoded
    std::size_t end = 0;  // just past the ">"

    std::string attribute(std::string_view key) const
    {
        for (const auto& [name, value] : attributes) {
            if (name == key) {
                return value;
            }
        }
        return {};
    }
};

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// Reads the tag that starts at `at` (a "<").
Tag readTag(std::string_view html, std::size_t at)
{
    Tag tag;
    std::size_t i = at + 1;
    if (i < html.size() && html[i] == '/') {
        tag.closing = true;
        ++i;
    }
    while (i < html.size() && (std::isalnum(static_cast<unsigned char>(html[i])) || html[i] == '-' || html[i] == ':')) {
        tag.name.push_back(lower(html[i++]));
    }
    while (i < html.size() && html[i] != '>') {
        if (isSpace(html[i]) || html[i] == '/') {
            ++i;
            continue;
        }
        std::string name;
        while (i < html.size() && !isSpace(html[i]) && html[i] != '=' && html[i] != '>' && html[i] != '/') {
            name.push_back(lower(html[i++]));
        }
        while (i < html.size() && isSpace(html[i])) {
            ++i;
        }
        std::string value;
        if (i < html.size() && html[i] == '=') {
            ++i;
            while (i < html.size() && isSpace(html[i])) {
                ++i;
            }
            if (i < html.size() && (html[i] == '"' || html[i] == '\'')) {
                const char quote = html[i++];
                const std::size_t close = html.find(quote, i);
                const std::size_t stop = close == std::string_view::npos ? html.size() : close;
                value = std::string(html.substr(i, stop - i));
                i = close == std::string_view::npos ? html.size() : close + 1;
            } else {
                while (i < html.size() && !isSpace(html[i]) && html[i] != '>') {
                    value.push_back(html[i++]);
                }
            }
        }
        if (!name.empty()) {
            tag.attributes.emplace_back(std::move(name), decodeCharacterReferences(value));
        }
    }
    tag.end = i < html.size() ? i + 1 : html.size();
    return tag;
}

std::string collapseSpaces(std::string_view text)
{
    std::string out;
    bool space = false;
    for (const char c : text) {
        if (isSpace(c)) {
            space = !out.empty();
            continue;
        }
        if (space) {
            out.push_back(' ');
            space = false;
        }
        out.push_back(c);
    }
    return out;
}

std::vector<std::string> splitKeywords(std::string_view text)
{
    std::vector<std::string> keywords;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find_first_of(",;", start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string keyword = collapseSpaces(text.substr(start, end - start));
        if (!keyword.empty()) {
            keywords.push_back(std::move(keyword));
        }
        start = end + 1;
    }
    return keywords;
}

}  // namespace

std::string decodeCharacterReferences(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const std::size_t amp = text.find('&', i);
        if (amp == std::string_view::npos) {
            out.append(text.substr(i));
            break;
        }
        out.append(text.substr(i, amp - i));
        const std::size_t semicolon = text.find(';', amp);
        if (semicolon == std::string_view::npos || semicolon - amp > 12) {
            out.push_back('&');
            i = amp + 1;
            continue;
        }
        const std::string_view name = text.substr(amp + 1, semicolon - amp - 1);
        char32_t codePoint = 0;
        if (name.size() > 1 && name[0] == '#') {
            const bool hex = name[1] == 'x' || name[1] == 'X';
            const std::string_view digits = name.substr(hex ? 2 : 1);
            std::uint32_t value = 0;
            const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
            if (error == std::errc() && end == digits.data() + digits.size() && !digits.empty()) {
                codePoint = (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) ? 0xFFFD : value;
            }
        } else {
            const auto it = std::lower_bound(std::begin(kReferences), std::end(kReferences), name,
                                             [](const NamedReference& r, std::string_view n) { return r.name < n; });
            if (it != std::end(kReferences) && it->name == name) {
                codePoint = it->codePoint;
            }
        }
        if (codePoint == 0) {
            out.push_back('&');
            i = amp + 1;
            continue;
        }
        index::text::appendUtf8(out, codePoint == 0xA0 ? U' ' : codePoint);
        i = semicolon + 1;
    }
    return out;
}

std::string declaredHtmlCharset(std::string_view html)
{
    const std::string_view head = html.substr(0, 4096);
    for (std::size_t at = head.find('<'); at != std::string_view::npos; at = head.find('<', at + 1)) {
        if (!equalsIgnoringCase(head.substr(at, 5), "<meta")) {
            continue;
        }
        const Tag tag = readTag(head, at);
        if (std::string charset = tag.attribute("charset"); !charset.empty()) {
            return collapseSpaces(charset);
        }
        const std::string content = tag.attribute("content");
        const std::size_t position = findIgnoringCase(content, "charset=", 0);
        if (position != std::string::npos) {
            std::string charset = content.substr(position + 8);
            charset = charset.substr(0, charset.find_first_of("; \"'"));
            return charset;
        }
    }
    return {};
}

HtmlFacts extractHtml(std::string_view html, ImportSink& sink)
{
    HtmlFacts facts;
    std::string text;  // the current run of text between tags
    auto flush = [&] {
        if (!text.empty()) {
            sink.appendText(decodeCharacterReferences(text));
            text.clear();
        }
    };
    std::size_t i = 0;
    while (i < html.size() && !sink.textFull()) {
        if (html[i] != '<') {
            const std::size_t next = html.find('<', i);
            const std::size_t end = next == std::string_view::npos ? html.size() : next;
            text.append(html.substr(i, end - i));
            i = end;
            continue;
        }
        if (html.substr(i, 4) == "<!--") {
            const std::size_t close = html.find("-->", i + 4);
            i = close == std::string_view::npos ? html.size() : close + 3;
            continue;
        }
        const char next = i + 1 < html.size() ? html[i + 1] : '\0';
        if (next == '!' || next == '?') {
            const std::size_t close = html.find('>', i);
            i = close == std::string_view::npos ? html.size() : close + 1;
            continue;
        }
        if (!std::isalpha(static_cast<unsigned char>(next)) && next != '/') {
            text.push_back('<');  // a lone "<" in text
            ++i;
            continue;
        }
        const Tag tag = readTag(html, i);
        i = tag.end;
        if (tag.closing) {
            if (std::find(std::begin(kInlineElements), std::end(kInlineElements), tag.name) == std::end(kInlineElements)) {
                text.push_back('\n');
            }
            continue;
        }
        if (std::find(std::begin(kSkippedElements), std::end(kSkippedElements), tag.name) != std::end(kSkippedElements)) {
            const std::size_t close = findIgnoringCase(html, "</" + tag.name, i);
            i = close == std::string_view::npos ? html.size() : close;
            continue;
        }
        if (tag.name == "title") {
            const std::size_t close = findIgnoringCase(html, "</title", i);
            const std::size_t stop = close == std::string_view::npos ? html.size() : close;
            if (facts.title.empty()) {
                facts.title = collapseSpaces(decodeCharacterReferences(html.substr(i, stop - i)));
            }
            text.append(html.substr(i, stop - i));
            text.push_back('\n');
            i = stop;
            continue;
        }
        if (tag.name == "meta") {
            const std::string name = tag.attribute("name");
            const std::string content = tag.attribute("content");
            if (equalsIgnoringCase(name, "author")) {
                facts.author = collapseSpaces(content);
            } else if (equalsIgnoringCase(name, "description")) {
                facts.description = collapseSpaces(content);
            } else if (equalsIgnoringCase(name, "keywords")) {
                facts.keywords = splitKeywords(content);
            }
            continue;
        }
        if (tag.name == "html" && facts.language.empty()) {
            facts.language = tag.attribute("lang");
        }
        if (std::find(std::begin(kInlineElements), std::end(kInlineElements), tag.name) == std::end(kInlineElements)) {
            text.push_back('\n');
            flush();
        }
    }
    flush();
    return facts;
}

}  // namespace trovara::importers
