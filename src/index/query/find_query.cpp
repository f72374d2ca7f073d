#include "index/query/find_query.h"

#include "index/query/ascii.h"
#include "index/query/parser.h"
#include "index/text/utf8.h"
#include "index/text/word_splitter.h"

#include <utility>
#include <vector>

namespace trovara::index::query {

namespace {

bool comparesSomething(const Node& node)
{
    if (node.kind == Node::Kind::Compare || node.kind == Node::Kind::InRange) {
        return true;
    }
    for (const Node& child : node.children) {
        if (comparesSomething(child)) {
            return true;
        }
    }
    return false;
}

// Whether a person meant the input as an expression: it has an operator of
// the language or opens with a known function. Such input is parsed, and
// its mistakes are reported, instead of being searched for as words.
bool looksLikeExpression(std::string_view input)
{
    for (const char* marker : {"==", "!=", "<", ">", "&&", "||", "=", "$time", "InRange(", "inrange("}) {
        if (input.find(marker) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

// "position N", N the 1-based character position of a byte offset.
std::string positionOf(std::string_view input, std::size_t byteOffset)
{
    return "position " + std::to_string(text::codePointCount(input, byteOffset) + 1);
}

Failure invalidAt(std::string_view input, std::size_t byteOffset, const std::string& message)
{
    return Failure{Failure::Kind::InvalidQuery, positionOf(input, byteOffset) + ": " + message};
}

// Plain words search for what they spell, so their parentheses must pair
// up: "report (final" is a mistake to point at, not a word to look for.
Expected<void> checkParentheses(std::string_view input)
{
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < input.size(); ++i) {
        if (input[i] == '(') {
            open.push_back(i);
        } else if (input[i] == ')') {
            if (open.empty()) {
                return invalidAt(input, i, "found \")\" without a \"(\" before it");
            }
            open.pop_back();
        }
    }
    if (!open.empty()) {
        return invalidAt(input, input.size(), "expected \")\" to close the \"(\" at " + positionOf(input, open.back()));
    }
    return {};
}

bool hasWordCharacter(std::string_view word)
{
    std::size_t i = 0;
    while (i < word.size()) {
        if (text::isWordCharacter(text::decodeUtf8(word, i))) {
            return true;
        }
    }
    return false;
}

// How a word is named in a message: as typed when it is valid UTF-8.
std::string describeWord(std::string_view word)
{
    std::size_t i = 0;
    while (i < word.size()) {
        if (text::decodeUtf8(word, i) == text::kInvalidCodePoint) {
            return "a word that is not valid UTF-8";
        }
    }
    return "\"" + std::string(word) + "\"";
}

// The blank-separated words of `input`, each with its byte offset.
std::vector<std::pair<std::size_t, std::string_view>> wordsOf(std::string_view input)
{
    std::vector<std::pair<std::size_t, std::string_view>> words;
    std::size_t i = 0;
    while (i < input.size()) {
        while (i < input.size() && ascii::isBlank(input[i])) {
            ++i;
        }
        const std::size_t start = i;
        while (i < input.size() && !ascii::isBlank(input[i])) {
            ++i;
        }
        if (i > start) {
            words.emplace_back(start, input.substr(start, i - start));
        }
    }
    return words;
}

// The words of `input` that name something to search for. A word of
// punctuation alone ("-", ".", "…") has no word to match: it is left out
// beside real words, and when nothing else is there it is an error, since
// searching for it would match everything.
Expected<std::string> searchableWords(std::string_view input)
{
    const auto words = wordsOf(input);
    std::string searchable;
    for (const auto& [start, word] : words) {
        if (hasWordCharacter(word)) {
            searchable += std::string(searchable.empty() ? "" : " ") + std::string(word);
        }
    }
    if (searchable.empty() && !words.empty()) {
        const auto& [start, word] = words.front();
        return invalidAt(input, start, "expected a word with a letter or digit, found " + describeWord(word));
    }
    return searchable;
}

}  // namespace

std::string escaped(std::string_view text)
{
    std::string out;
    for (const char ch : text) {
        if (ch == '"' || ch == '\\' || ch == '*' || ch == '?') {
            out.push_back('\\');
        }
        out.push_back(ch);
    }
    return out;
}

std::string interpretWords(std::string_view words)
{
    std::string query;
    for (const auto& [start, word] : wordsOf(words)) {
        const std::string pattern = escaped(word) + "*";
        if (!query.empty()) {
            query += " && ";
        }
        query += "(* = \"" + pattern + "\"cdw || kMDItemTextContent = \"" + pattern + "\"cdw)";
    }
    return query;
}

std::string nameQuery(std::string_view name)
{
    return "kMDItemFSName == \"*" + escaped(name) + "*\"cd";
}

bool isQueryExpression(std::string_view input)
{
    const auto parsed = parseQuery(input);
    return parsed.ok() && comparesSomething(parsed.value().root);
}

Expected<FindQuery> findQuery(std::string_view query, const std::optional<std::string>& name, bool interpret)
{
    FindQuery result;
    if (!interpret && isQueryExpression(query)) {
        result.text = std::string(query);
    } else if (!interpret && looksLikeExpression(query)) {
        Expected<Query> parsed = parseQuery(query);
        if (!parsed) {
            return parsed.error();
        }
        return Failure{Failure::Kind::InvalidQuery, "the query compares nothing"};
    } else {
        if (!interpret) {
            if (auto paired = checkParentheses(query); !paired) {
                return paired.error();
            }
        }
        Expected<std::string> words = searchableWords(query);
        if (!words) {
            return words.error();
        }
        result.text = interpretWords(*words);
        result.interpreted = true;
    }
    if (name) {
        const std::string byName = nameQuery(*name);
        result.text = result.text.empty() ? byName : "(" + result.text + ") && " + byName;
    }
    if (result.text.empty()) {
        return Failure{Failure::Kind::InvalidQuery, "expected a query or -name"};
    }
    return result;
}

}  // namespace trovara::index::query
