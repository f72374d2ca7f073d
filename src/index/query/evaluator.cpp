#include "index/query/evaluator.h"

#include "index/query/glob.h"
#include "index/query/parser.h"
#include "index/query/time_value.h"
#include "index/query/typed_value.h"
#include "index/text/folding.h"
#include "index/text/word_splitter.h"

#include <array>
#include <charconv>
#include <optional>

namespace trovara::index::query {

namespace {

std::string numberAsText(double number)
{
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    return std::string(buffer.data(), result.ptr);
}

std::string scalarAsText(const Scalar& scalar)
{
    if (const auto* text = std::get_if<std::string>(&scalar)) {
        return *text;
    }
    if (const auto* number = std::get_if<double>(&scalar)) {
        return numberAsText(*number);
    }
    if (const auto* date = std::get_if<Date>(&scalar)) {
        return numberAsText(date->seconds);
    }
    return std::get<bool>(scalar) ? "1" : "0";
}

std::optional<double> scalarAsNumber(const Scalar& scalar, ValueType type)
{
    if (const auto* number = std::get_if<double>(&scalar)) {
        return *number;
    }
    if (const auto* date = std::get_if<Date>(&scalar)) {
        return date->seconds;
    }
    if (const auto* flag = std::get_if<bool>(&scalar)) {
        return *flag ? 1.0 : 0.0;
    }
    return textAsNumber(std::get<std::string>(scalar), type);
}

// The glob form of a text that has no wildcards.
std::string literalPattern(std::string_view text)
{
    std::string pattern;
    for (const char ch : text) {
        if (ch == '*' || ch == '?' || ch == '\\') {
            pattern.push_back('\\');
        }
        pattern.push_back(ch);
    }
    return pattern;
}

bool isPresencePattern(const Value& value)
{
    return value.kind == Value::Kind::Text && !value.pattern.empty()
           && value.pattern.find_first_not_of('*') == std::string::npos;
}

// A value resolved for a numeric comparison.
struct NumericOperand {
    bool valid = false;
    double start = 0;
    double end = 0;  // periods: exclusive end
    bool period = false;
};

// A value resolved for a text comparison.
struct TextOperand {
    text::FoldOptions fold;
    bool wordBased = false;
    Glob glob;              // == on a whole value
    WordPattern words;      // == on words ("w", the text content)
    std::string folded;     // ordering operators and InRange
};

struct Operand {
    enum class Kind : std::uint8_t { Value, Presence, Null };
    Kind kind = Kind::Value;
    TextOperand text;
    // By ValueType: Number, Date and Boolean each convert a text their way.
    std::array<NumericOperand, 4> numeric{};
};

struct Target {
    std::string key;
    ValueType type = ValueType::String;
};

struct CompiledNode {
    Node::Kind kind = Node::Kind::True;
    std::vector<CompiledNode> children;
    std::vector<Target> targets;
    bool textContent = false;
    Comparison comparison = Comparison::Equal;
    std::vector<Operand> operands;
};

int compareTexts(std::string_view a, std::string_view b)
{
    const int result = a.compare(b);
    return result < 0 ? -1 : (result > 0 ? 1 : 0);
}

bool orderingHolds(Comparison comparison, int order)
{
    switch (comparison) {
    case Comparison::Less:
        return order < 0;
    case Comparison::Greater:
        return order > 0;
    case Comparison::LessOrEqual:
        return order <= 0;
    case Comparison::GreaterOrEqual:
        return order >= 0;
    case Comparison::Equal:
        return order == 0;
    case Comparison::NotEqual:
        return order != 0;
    }
    return false;
}

class Compiler {
public:
    Compiler(const QueryStart& start, const Schema& schema)
        : m_start(start)
        , m_schema(schema)
    {
    }

    CompiledNode compile(const Node& node) const
    {
        CompiledNode compiled;
        compiled.kind = node.kind;
        compiled.comparison = node.comparison;
        for (const Node& child : node.children) {
            compiled.children.push_back(compile(child));
        }
        if (node.kind != Node::Kind::Compare && node.kind != Node::Kind::InRange) {
            return compiled;
        }
        addTargets(node.attribute, compiled);
        const bool equality = node.kind == Node::Kind::Compare
                              && (node.comparison == Comparison::Equal || node.comparison == Comparison::NotEqual);
        for (const Value& value : node.values) {
            compiled.operands.push_back(operandOf(value, equality));
        }
        return compiled;
    }

private:
    void addTargets(const AttributeRef& attribute, CompiledNode& compiled) const
    {
        if (attribute.kind == AttributeRef::Kind::Named) {
            if (attribute.name == kTextContentKey) {
                compiled.textContent = true;
                return;
            }
            const AttributeInfo* info = m_schema.find(attribute.name);
            compiled.targets.push_back({attribute.name, info ? info->type : ValueType::String});
            return;
        }
        for (const AttributeInfo& info : m_schema.attributes()) {
            if (info.anyText && info.key != kTextContentKey) {
                compiled.targets.push_back({info.key, info.type});
            }
        }
        compiled.textContent = attribute.kind == AttributeRef::Kind::AnyTextOrContent;
    }

    Operand operandOf(const Value& value, bool equality) const
    {
        Operand operand;
        if (value.kind == Value::Kind::Null) {
            operand.kind = Operand::Kind::Null;
            return operand;
        }
        if (equality && isPresencePattern(value)) {
            operand.kind = Operand::Kind::Presence;
            return operand;
        }

        const bool hasPattern = value.kind == Value::Kind::Text || (value.kind == Value::Kind::Time && value.quoted);
        const std::string pattern = hasPattern ? value.pattern : literalPattern(value.text);
        TextOperand& text = operand.text;
        text.fold = {value.modifiers.caseInsensitive, value.modifiers.diacriticInsensitive};
        text.wordBased = value.modifiers.wordBased;
        text.glob = Glob::compile(pattern, text.fold);
        text.words = WordPattern::compile(pattern, text.fold);
        text.folded = text::foldText(value.text, text.fold);

        for (const ValueType type : {ValueType::Number, ValueType::Date, ValueType::Boolean}) {
            NumericOperand& numeric = operand.numeric[static_cast<std::size_t>(type)];
            switch (value.kind) {
            case Value::Kind::Number:
            case Value::Kind::Boolean:
                numeric = {true, value.number, value.number, false};
                break;
            case Value::Kind::Time: {
                const TimeRange range = resolveTime(value.time, m_start);
                numeric = {true, range.start, range.end, range.period};
                break;
            }
            case Value::Kind::Text:
                if (const auto number = textAsNumber(value.text, type)) {
                    numeric = {true, *number, *number, false};
                }
                break;
            case Value::Kind::Null:
                break;
            }
        }
        return operand;
    }

    QueryStart m_start;
    const Schema& m_schema;
};

bool textMatches(std::string_view value, Comparison comparison, const TextOperand& operand)
{
    if (comparison == Comparison::Equal) {
        if (operand.wordBased) {
            return operand.words.matches(FoldedWords(value, operand.fold));
        }
        return operand.glob.matches(text::foldText(value, operand.fold));
    }
    return orderingHolds(comparison, compareTexts(text::foldText(value, operand.fold), operand.folded));
}

bool numberMatches(double value, Comparison comparison, const NumericOperand& operand)
{
    if (!operand.valid) {
        return false;
    }
    if (comparison == Comparison::Equal && operand.period) {
        return value >= operand.start && value < operand.end;
    }
    return orderingHolds(comparison, value < operand.start ? -1 : (value > operand.start ? 1 : 0));
}

bool scalarMatches(const Scalar& scalar, ValueType type, Comparison comparison, const Operand& operand)
{
    if (type == ValueType::String) {
        return textMatches(scalarAsText(scalar), comparison, operand.text);
    }
    const auto number = scalarAsNumber(scalar, type);
    return number && numberMatches(*number, comparison, operand.numeric[static_cast<std::size_t>(type)]);
}

bool scalarInRange(const Scalar& scalar, ValueType type, const Operand& lower, const Operand& upper)
{
    if (type == ValueType::String) {
        const std::string value = scalarAsText(scalar);
        return compareTexts(text::foldText(value, lower.text.fold), lower.text.folded) >= 0
               && compareTexts(text::foldText(value, upper.text.fold), upper.text.folded) <= 0;
    }
    const auto number = scalarAsNumber(scalar, type);
    const NumericOperand& low = lower.numeric[static_cast<std::size_t>(type)];
    const NumericOperand& high = upper.numeric[static_cast<std::size_t>(type)];
    return number && low.valid && high.valid && *number >= low.start && *number <= high.start;
}

bool textContentMatches(std::string_view content, Comparison comparison, const TextOperand& operand)
{
    const FoldedWords words(content, operand.fold);
    if (comparison == Comparison::Equal) {
        return operand.words.matches(words);
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (orderingHolds(comparison, compareTexts(words.word(i), operand.folded))) {
            return true;
        }
    }
    return false;
}

bool textContentInRange(std::string_view content, const TextOperand& lower, const TextOperand& upper)
{
    const FoldedWords low(content, lower.fold);
    const FoldedWords high(content, upper.fold);
    for (std::size_t i = 0; i < low.size(); ++i) {
        if (compareTexts(low.word(i), lower.folded) >= 0 && compareTexts(high.word(i), upper.folded) <= 0) {
            return true;
        }
    }
    return false;
}

bool hasValue(const AttributeValue* value)
{
    return value && !value->elements().empty();
}

bool anyPresent(const CompiledNode& node, const ItemView& item)
{
    for (const Target& target : node.targets) {
        if (hasValue(item.attribute(target.key))) {
            return true;
        }
    }
    return node.textContent && item.textContent().has_value();
}

// "==" and the ordering operators; "!=" is the negation of "==".
bool compare(const CompiledNode& node, const ItemView& item, Comparison comparison)
{
    const Operand& operand = node.operands.front();
    if (operand.kind == Operand::Kind::Presence) {
        return anyPresent(node, item);
    }
    if (operand.kind == Operand::Kind::Null) {
        return !anyPresent(node, item);
    }
    for (const Target& target : node.targets) {
        const AttributeValue* value = item.attribute(target.key);
        if (!value) {
            continue;
        }
        for (const Scalar& scalar : value->elements()) {
            if (scalarMatches(scalar, target.type, comparison, operand)) {
                return true;
            }
        }
    }
    if (node.textContent) {
        if (const auto content = item.textContent()) {
            return textContentMatches(*content, comparison, operand.text);
        }
    }
    return false;
}

bool inRange(const CompiledNode& node, const ItemView& item)
{
    const Operand& lower = node.operands[0];
    const Operand& upper = node.operands[1];
    for (const Target& target : node.targets) {
        const AttributeValue* value = item.attribute(target.key);
        if (!value) {
            continue;
        }
        for (const Scalar& scalar : value->elements()) {
            if (scalarInRange(scalar, target.type, lower, upper)) {
                return true;
            }
        }
    }
    if (node.textContent) {
        if (const auto content = item.textContent()) {
            return textContentInRange(*content, lower.text, upper.text);
        }
    }
    return false;
}

bool evaluate(const CompiledNode& node, const ItemView& item)
{
    switch (node.kind) {
    case Node::Kind::Or:
        for (const CompiledNode& child : node.children) {
            if (evaluate(child, item)) {
                return true;
            }
        }
        return false;
    case Node::Kind::And:
        for (const CompiledNode& child : node.children) {
            if (!evaluate(child, item)) {
                return false;
            }
        }
        return true;
    case Node::Kind::Not:
        return !evaluate(node.children.front(), item);
    case Node::Kind::Compare:
        if (node.comparison == Comparison::NotEqual) {
            return !compare(node, item, Comparison::Equal);
        }
        return compare(node, item, node.comparison);
    case Node::Kind::InRange:
        return inRange(node, item);
    case Node::Kind::True:
        return true;
    case Node::Kind::False:
        return false;
    }
    return false;
}

}  // namespace

struct Evaluator::Program {
    CompiledNode root;
};

Evaluator::Evaluator(const Query& query, const QueryStart& start, const Schema& schema)
    : m_program(std::make_shared<const Program>(Program{Compiler(start, schema).compile(query.root)}))
{
}

bool Evaluator::matches(const ItemView& item) const
{
    return evaluate(m_program->root, item);
}

// --- Single comparisons, for the index's fast paths --------------------------

namespace {

// Literal runs of a glob pattern: the text between unescaped wildcards,
// with escapes resolved.
std::vector<std::string> literalRuns(std::string_view pattern)
{
    std::vector<std::string> runs(1);
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char ch = pattern[i];
        if (ch == '\\' && i + 1 < pattern.size()) {
            runs.back().push_back(pattern[++i]);
        } else if (ch == '*' || ch == '?') {
            runs.emplace_back();
        } else {
            runs.back().push_back(ch);
        }
    }
    std::erase_if(runs, [](const std::string& run) { return run.empty(); });
    return runs;
}

// Drops the first and last code point of a folded non-ASCII literal: at a
// cut, composition and case folding may join characters differently than
// in the whole value, so only the inner part is sure to reappear.
std::string innerPart(const std::string& folded)
{
    if (text::isAscii(folded)) {
        return folded;
    }
    std::size_t begin = 0;
    if (begin < folded.size()) {
        ++begin;
        while (begin < folded.size() && (static_cast<unsigned char>(folded[begin]) & 0xC0) == 0x80) {
            ++begin;
        }
    }
    std::size_t end = folded.size();
    if (end > begin) {
        --end;
        while (end > begin && (static_cast<unsigned char>(folded[end]) & 0xC0) == 0x80) {
            --end;
        }
    }
    return folded.substr(begin, end > begin ? end - begin : 0);
}

}  // namespace

struct ComparisonMatcher::Compiled {
    CompiledNode node;
    std::string pattern;  // the == operand's glob form
};

ComparisonMatcher::ComparisonMatcher(const Node& node, const QueryStart& start, const Schema& schema)
{
    auto compiled = std::make_shared<Compiled>();
    compiled->node = Compiler(start, schema).compile(node);
    if (!node.values.empty()) {
        const Value& value = node.values.front();
        const bool hasPattern = value.kind == Value::Kind::Text || (value.kind == Value::Kind::Time && value.quoted);
        compiled->pattern = hasPattern ? value.pattern : literalPattern(value.text);
    }
    m_compiled = std::move(compiled);
}

ComparisonMatcher::~ComparisonMatcher() = default;
ComparisonMatcher::ComparisonMatcher(const ComparisonMatcher&) = default;
ComparisonMatcher& ComparisonMatcher::operator=(const ComparisonMatcher&) = default;

ComparisonMatcher::Kind ComparisonMatcher::kind() const
{
    const CompiledNode& node = m_compiled->node;
    if (node.kind == Node::Kind::Compare && !node.operands.empty()) {
        if (node.operands.front().kind == Operand::Kind::Presence) {
            return Kind::Presence;
        }
        if (node.operands.front().kind == Operand::Kind::Null) {
            return Kind::Null;
        }
    }
    return Kind::Scalar;
}

bool ComparisonMatcher::negated() const
{
    const CompiledNode& node = m_compiled->node;
    return node.kind == Node::Kind::Compare && node.comparison == Comparison::NotEqual;
}

std::size_t ComparisonMatcher::targetCount() const
{
    return m_compiled->node.targets.size();
}

const std::string& ComparisonMatcher::targetKey(std::size_t target) const
{
    return m_compiled->node.targets[target].key;
}

ValueType ComparisonMatcher::targetType(std::size_t target) const
{
    return m_compiled->node.targets[target].type;
}

bool ComparisonMatcher::looksAtTextContent() const
{
    return m_compiled->node.textContent;
}

bool ComparisonMatcher::scalarHolds(std::size_t target, const Scalar& scalar) const
{
    const CompiledNode& node = m_compiled->node;
    const ValueType type = node.targets[target].type;
    if (node.kind == Node::Kind::InRange) {
        return scalarInRange(scalar, type, node.operands[0], node.operands[1]);
    }
    const Comparison comparison = node.comparison == Comparison::NotEqual ? Comparison::Equal : node.comparison;
    return scalarMatches(scalar, type, comparison, node.operands.front());
}

bool ComparisonMatcher::textContentHolds(std::string_view content) const
{
    const CompiledNode& node = m_compiled->node;
    if (node.kind == Node::Kind::InRange) {
        return textContentInRange(content, node.operands[0].text, node.operands[1].text);
    }
    const Comparison comparison = node.comparison == Comparison::NotEqual ? Comparison::Equal : node.comparison;
    return textContentMatches(content, comparison, node.operands.front().text);
}

bool ComparisonMatcher::matches(const ItemView& item) const
{
    return evaluate(m_compiled->node, item);
}

const Glob* ComparisonMatcher::caseAndDiacriticGlob() const
{
    const CompiledNode& node = m_compiled->node;
    if (node.kind != Node::Kind::Compare || kind() != Kind::Scalar
        || (node.comparison != Comparison::Equal && node.comparison != Comparison::NotEqual)) {
        return nullptr;
    }
    const TextOperand& text = node.operands.front().text;
    if (!text.fold.caseInsensitive || !text.fold.diacriticInsensitive || text.wordBased) {
        return nullptr;
    }
    return &text.glob;
}

std::vector<std::string> ComparisonMatcher::requiredFoldedLiterals() const
{
    const CompiledNode& node = m_compiled->node;
    if (node.kind != Node::Kind::Compare || kind() != Kind::Scalar
        || (node.comparison != Comparison::Equal && node.comparison != Comparison::NotEqual)) {
        return {};
    }
    const bool wordBased = node.operands.front().text.wordBased;
    std::vector<std::string> literals;
    for (const std::string& run : literalRuns(m_compiled->pattern)) {
        // Word-based patterns match word by word: only the runs between
        // separators are sure to stand in the value as they are.
        std::vector<std::string> pieces;
        if (wordBased) {
            for (const text::Word& word : text::splitWords(run)) {
                pieces.emplace_back(word.text());
            }
        } else {
            pieces.push_back(run);
        }
        for (const std::string& piece : pieces) {
            std::string inner = innerPart(text::foldForCatalogue(piece));
            if (!inner.empty()) {
                literals.push_back(std::move(inner));
            }
        }
    }
    return literals;
}

std::optional<TextContentHint> ComparisonMatcher::textContentHint() const
{
    const CompiledNode& node = m_compiled->node;
    if (!node.textContent || node.kind != Node::Kind::Compare || kind() != Kind::Scalar
        || (node.comparison != Comparison::Equal && node.comparison != Comparison::NotEqual)) {
        return std::nullopt;
    }
    const TextOperand& operand = node.operands.front().text;
    TextContentHint hint;
    hint.foldsAsTheIndex = operand.fold.caseInsensitive && operand.fold.diacriticInsensitive;
    for (const std::string& piece : WordPattern::pieces(m_compiled->pattern)) {
        WordPieceHint pieceHint;
        std::string lead;
        std::size_t i = 0;
        for (; i < piece.size(); ++i) {
            if (piece[i] == '\\' && i + 1 < piece.size()) {
                lead.push_back(piece[++i]);
            } else if (piece[i] == '*' || piece[i] == '?') {
                break;
            } else {
                lead.push_back(piece[i]);
            }
        }
        pieceHint.exact = i == piece.size();
        pieceHint.beginsWith = i + 1 == piece.size() && piece[i] == '*';
        pieceHint.prefix = text::foldForCatalogue(lead);
        if (!hint.foldsAsTheIndex && !text::isAscii(pieceHint.prefix)) {
            // Folded otherwise, the last character may join what follows it.
            std::size_t end = pieceHint.prefix.size();
            while (end > 0 && (static_cast<unsigned char>(pieceHint.prefix[--end]) & 0xC0) == 0x80) {
            }
            pieceHint.prefix.resize(end);
            pieceHint.exact = false;
            pieceHint.beginsWith = false;
        }
        if (pieceHint.prefix.empty()) {
            pieceHint.exact = false;
            pieceHint.beginsWith = false;
            for (const std::string& run : literalRuns(piece)) {
                std::string inner = innerPart(text::foldForCatalogue(run));
                if (!inner.empty()) {
                    pieceHint.contained.push_back(std::move(inner));
                }
            }
        }
        hint.pieces.push_back(std::move(pieceHint));
    }
    return hint;
}

Expected<bool> matchesQuery(std::string_view query, const ItemView& item, const QueryStart& start,
                            const Schema& schema)
{
    auto parsed = parseQuery(query, schema);
    if (!parsed) {
        return parsed.error();
    }
    return Evaluator(parsed.value(), start, schema).matches(item);
}

}  // namespace trovara::index::query
