#include "index/import/imported_attributes.h"

#include "index/import/wire.h"
#include "index/text/encoding.h"

#include <cmath>

namespace trovara::index {

namespace {

enum class Kind : std::uint8_t { Text = 0, Number = 1, Date = 2, Boolean = 3 };

constexpr std::uint8_t kListFlag = 1;
constexpr std::size_t kMaxKeyLength = 128;

Failure damaged(const char* why)
{
    return Failure{Failure::Kind::Corrupt, std::string("damaged attribute record: ") + why};
}

}  // namespace

const query::AttributeValue* findImported(const ImportedAttributes& attributes, std::string_view key)
{
    for (const ImportedAttribute& attribute : attributes) {
        if (attribute.key == key) {
            return &attribute.value;
        }
    }
    return nullptr;
}

bool isAttributeKey(std::string_view key)
{
    if (key.empty() || key.size() > kMaxKeyLength) {
        return false;
    }
    for (std::size_t i = 0; i < key.size(); ++i) {
        const char c = key[i];
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
        if (!letter && (i == 0 || c < '0' || c > '9')) {
            return false;
        }
    }
    return true;
}

namespace {

void writeValue(wire::Writer& out, const query::AttributeValue& value)
{
    out.u8(value.isList() ? kListFlag : 0);
    out.u32(static_cast<std::uint32_t>(value.elements().size()));
    for (const query::Scalar& element : value.elements()) {
        if (const auto* text = std::get_if<std::string>(&element)) {
            out.u8(static_cast<std::uint8_t>(Kind::Text));
            out.text(*text);
        } else if (const auto* number = std::get_if<double>(&element)) {
            out.u8(static_cast<std::uint8_t>(Kind::Number));
            out.f64(*number);
        } else if (const auto* date = std::get_if<query::Date>(&element)) {
            out.u8(static_cast<std::uint8_t>(Kind::Date));
            out.f64(date->seconds);
        } else {
            out.u8(static_cast<std::uint8_t>(Kind::Boolean));
            out.u8(std::get<bool>(element) ? 1 : 0);
        }
    }
}

// A value; none when it is damaged, or a single value that was dropped
// (`damagedOut` tells the two apart).
std::optional<query::AttributeValue> readValue(wire::Reader& in, bool& damagedOut)
{
    damagedOut = true;
    const std::uint8_t flags = in.u8();
    const std::uint32_t elementCount = in.u32();
    if (!in.ok() || (flags & ~kListFlag) || elementCount > in.remaining() / 2) {
        return std::nullopt;
    }
    std::vector<query::Scalar> elements;
    elements.reserve(elementCount);
    for (std::uint32_t e = 0; e < elementCount; ++e) {
        const auto kind = static_cast<Kind>(in.u8());
        switch (kind) {
        case Kind::Text:
            elements.emplace_back(text::decodeText(in.text(), text::TextEncoding::Utf8).text);
            break;
        case Kind::Number:
        case Kind::Date: {
            const double value = in.f64();
            if (!std::isfinite(value)) {
                continue;
            }
            if (kind == Kind::Number) {
                elements.emplace_back(value);
            } else {
                elements.emplace_back(query::Date{value});
            }
            break;
        }
        case Kind::Boolean:
            elements.emplace_back(in.u8() != 0);
            break;
        default:
            return std::nullopt;
        }
        if (!in.ok()) {
            return std::nullopt;
        }
    }
    damagedOut = false;
    if (flags & kListFlag) {
        return query::AttributeValue::list(std::move(elements));
    }
    if (elements.empty()) {
        return std::nullopt;
    }
    return query::AttributeValue(std::move(elements.front()));
}

}  // namespace

std::string encodeImportedAttributes(const ImportedAttributes& attributes)
{
    wire::Writer out;
    out.u32(static_cast<std::uint32_t>(attributes.size()));
    for (const ImportedAttribute& attribute : attributes) {
        out.u16(static_cast<std::uint16_t>(attribute.key.size()));
        for (const char c : attribute.key) {
            out.u8(static_cast<std::uint8_t>(c));
        }
        writeValue(out, attribute.value);
    }
    return out.take();
}

Expected<ImportedAttributes> decodeImportedAttributes(std::string_view bytes)
{
    wire::Reader in(bytes);
    const std::uint32_t count = in.u32();
    // Every attribute takes at least 7 bytes: a count beyond that is a lie.
    if (!in.ok() || count > in.remaining() / 7) {
        return damaged("bad attribute count");
    }
    ImportedAttributes attributes;
    attributes.reserve(count);
    for (std::uint32_t a = 0; a < count; ++a) {
        const std::uint16_t keyLength = in.u16();
        std::string key;
        for (std::uint16_t k = 0; k < keyLength && in.ok(); ++k) {
            key.push_back(static_cast<char>(in.u8()));
        }
        if (!in.ok() || !isAttributeKey(key)) {
            return damaged("bad attribute key");
        }
        bool wasDamaged = false;
        std::optional<query::AttributeValue> value = readValue(in, wasDamaged);
        if (wasDamaged) {
            return damaged("bad value");
        }
        if (value) {
            attributes.push_back({std::move(key), std::move(*value)});
        }
    }
    if (!in.atEnd()) {
        return damaged("trailing bytes");
    }
    return attributes;
}

std::string encodeImportedValue(const query::AttributeValue& value)
{
    wire::Writer out;
    writeValue(out, value);
    return out.take();
}

std::optional<query::AttributeValue> decodeImportedValue(std::string_view bytes)
{
    wire::Reader in(bytes);
    bool wasDamaged = false;
    std::optional<query::AttributeValue> value = readValue(in, wasDamaged);
    return in.atEnd() ? value : std::nullopt;
}

}  // namespace trovara::index
