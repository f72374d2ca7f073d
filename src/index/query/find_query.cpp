#include "index/query/find_query.h"

#include "index/query/ascii.h"
#include "index/query/parser.h"

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
    std::size_t i = 0;
    while (i < words.size()) {
        while (i < words.size() && ascii::isBlank(words[i])) {
            ++i;
        }
        const std::size_t start = i;
        while (i < words.size() && !ascii::isBlank(words[i])) {
            ++i;
        }
        if (i == start) {
            break;
        }
        const std::string pattern = escaped(words.substr(start, i - start)) + "*";
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
        result.text = interpretWords(query);
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
