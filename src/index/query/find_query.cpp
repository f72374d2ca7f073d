#include "index/query/find_query.h"

#include "index/query/ascii.h"
#include "index/query/parser.h"

namespace trovara::index::query {

namespace {

// Text inside double quotes, with everything the language treats specially
// escaped.
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

}  // namespace

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
