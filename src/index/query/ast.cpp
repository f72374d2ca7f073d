#include "index/query/ast.h"

namespace trovara::index::query {

namespace {

void appendQuoted(std::string& out, const std::string& pattern)
{
    out.push_back('"');
    for (const char ch : pattern) {
        if (ch == '"') {
            out.push_back('\\');
        }
        out.push_back(ch);
    }
    out.push_back('"');
}

void appendModifiers(std::string& out, const Modifiers& modifiers)
{
    if (modifiers.caseInsensitive) {
        out.push_back('c');
    }
    if (modifiers.diacriticInsensitive) {
        out.push_back('d');
    }
    if (modifiers.wordBased) {
        out.push_back('w');
    }
}

void appendValue(std::string& out, const Value& value)
{
    switch (value.kind) {
    case Value::Kind::Text:
        appendQuoted(out, value.pattern);
        appendModifiers(out, value.modifiers);
        return;
    case Value::Kind::Time:
        if (value.quoted) {
            appendQuoted(out, value.pattern);
            appendModifiers(out, value.modifiers);
        } else {
            out += value.text;
        }
        return;
    case Value::Kind::Number:
        out += value.text;
        return;
    case Value::Kind::Boolean:
        out += value.number != 0 ? "true" : "false";
        return;
    case Value::Kind::Null:
        out += "null";
        return;
    }
}

void appendAttribute(std::string& out, const AttributeRef& attribute)
{
    switch (attribute.kind) {
    case AttributeRef::Kind::Named:
        out += attribute.name;
        return;
    case AttributeRef::Kind::AnyText:
        out += '*';
        return;
    case AttributeRef::Kind::AnyTextOrContent:
        out += "**";
        return;
    }
}

void appendNode(std::string& out, const Node& node)
{
    switch (node.kind) {
    case Node::Kind::Or:
    case Node::Kind::And: {
        const char* glue = node.kind == Node::Kind::Or ? " || " : " && ";
        out.push_back('(');
        for (std::size_t i = 0; i < node.children.size(); ++i) {
            if (i > 0) {
                out += glue;
            }
            appendNode(out, node.children[i]);
        }
        out.push_back(')');
        return;
    }
    case Node::Kind::Not:
        out += "!(";
        appendNode(out, node.children.front());
        out.push_back(')');
        return;
    case Node::Kind::Compare:
        appendAttribute(out, node.attribute);
        out.push_back(' ');
        out += comparisonText(node.comparison);
        out.push_back(' ');
        appendValue(out, node.values.front());
        return;
    case Node::Kind::InRange:
        out += "InRange(";
        appendAttribute(out, node.attribute);
        out += ", ";
        appendValue(out, node.values[0]);
        out += ", ";
        appendValue(out, node.values[1]);
        out.push_back(')');
        return;
    case Node::Kind::True:
        out += "true";
        return;
    case Node::Kind::False:
        out += "false";
        return;
    }
}

}  // namespace

const char* comparisonText(Comparison comparison)
{
    switch (comparison) {
    case Comparison::Equal:
        return "==";
    case Comparison::NotEqual:
        return "!=";
    case Comparison::Less:
        return "<";
    case Comparison::Greater:
        return ">";
    case Comparison::LessOrEqual:
        return "<=";
    case Comparison::GreaterOrEqual:
        return ">=";
    }
    return "==";
}

std::string toText(const Node& node)
{
    std::string out;
    appendNode(out, node);
    return out;
}

std::string toText(const Query& query)
{
    return toText(query.root);
}

}  // namespace trovara::index::query
