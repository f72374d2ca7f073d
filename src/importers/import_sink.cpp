#include "importers/importer.h"

#include "index/list_text.h"
#include "index/text/encoding.h"

#include <cmath>

namespace trovara::importers {

namespace {

// What one file may yield besides its text; a sane importer stays far below.
constexpr std::size_t kMaxAttributes = 256;
constexpr std::size_t kMaxListElements = 4096;
constexpr std::size_t kMaxValueBytes = 64 * 1024;

std::string cleanText(std::string_view text)
{
    return index::text::decodeText(index::trimmed(text), index::text::TextEncoding::Utf8, kMaxValueBytes).text;
}

}  // namespace

ImportSink::ImportSink(std::uint64_t textLimit)
    : m_textLimit(textLimit)
{
}

index::query::AttributeValue* ImportSink::find(std::string_view key)
{
    for (index::ImportedAttribute& attribute : m_attributes) {
        if (attribute.key == key) {
            return &attribute.value;
        }
    }
    return nullptr;
}

bool ImportSink::has(std::string_view key) const
{
    return index::findImported(m_attributes, key) != nullptr;
}

std::string ImportSink::textOf(std::string_view key) const
{
    const index::query::AttributeValue* value = index::findImported(m_attributes, key);
    if (!value || value->isList() || value->elements().empty()) {
        return {};
    }
    const auto* text = std::get_if<std::string>(&value->elements().front());
    return text ? *text : std::string();
}

void ImportSink::put(std::string_view key, index::query::AttributeValue value)
{
    if (!index::isAttributeKey(key)) {
        return;
    }
    if (index::query::AttributeValue* existing = find(key)) {
        *existing = std::move(value);
    } else if (m_attributes.size() < kMaxAttributes) {
        m_attributes.push_back({std::string(key), std::move(value)});
    }
}

void ImportSink::setText(std::string_view key, std::string_view text)
{
    std::string clean = cleanText(text);
    if (!clean.empty()) {
        put(key, index::query::AttributeValue(std::move(clean)));
    }
}

void ImportSink::setNumber(std::string_view key, double value)
{
    if (std::isfinite(value)) {
        put(key, index::query::AttributeValue(value));
    }
}

void ImportSink::setDate(std::string_view key, double secondsSince2001)
{
    if (std::isfinite(secondsSince2001)) {
        put(key, index::query::AttributeValue(index::query::Date{secondsSince2001}));
    }
}

void ImportSink::setBoolean(std::string_view key, bool value)
{
    put(key, index::query::AttributeValue(value));
}

void ImportSink::setList(std::string_view key, const std::vector<std::string>& texts)
{
    std::vector<index::query::Scalar> elements;
    for (const std::string& text : texts) {
        std::string clean = cleanText(text);
        if (!clean.empty() && elements.size() < kMaxListElements) {
            elements.emplace_back(std::move(clean));
        }
    }
    if (!elements.empty()) {
        put(key, index::query::AttributeValue::list(std::move(elements)));
    }
}

void ImportSink::addToList(std::string_view key, std::string_view text)
{
    std::string clean = cleanText(text);
    if (clean.empty()) {
        return;
    }
    index::query::AttributeValue* existing = find(key);
    if (!existing || !existing->isList()) {
        setList(key, {std::move(clean)});
        return;
    }
    std::vector<index::query::Scalar> elements(existing->elements().begin(), existing->elements().end());
    if (elements.size() < kMaxListElements) {
        elements.emplace_back(std::move(clean));
        *existing = index::query::AttributeValue::list(std::move(elements));
    }
}

bool ImportSink::appendText(std::string_view text)
{
    if (m_truncated) {
        return false;
    }
    m_anyText = true;
    const std::uint64_t room = m_textLimit - std::min<std::uint64_t>(m_textLimit, m_text.size());
    index::text::DecodedText clean =
        index::text::decodeText(text, index::text::TextEncoding::Utf8, static_cast<std::size_t>(room));
    m_text += clean.text;
    if (clean.truncated) {
        m_truncated = true;
        return false;
    }
    return true;
}

void ImportSink::breakText()
{
    if (!m_text.empty() && m_text.back() != '\n') {
        appendText("\n");
    }
}

index::ImportResult ImportSink::take()
{
    index::ImportResult result;
    result.attributes = std::move(m_attributes);
    if (m_anyText) {
        result.text = std::move(m_text);
    }
    result.truncated = m_truncated;
    return result;
}

}  // namespace trovara::importers
