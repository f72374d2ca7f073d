// Values for the inspector's value column, as attributed text: a value that
// begins with "http://", "https://" or "ftp://" (exactly so, in lower case)
// is a link up to the first comma or white space, shown blue and
// underlined; the rest of the text keeps the caller's attributes.
//
// Attributed text is kept toolkit-free here (runs of attribute maps over
// character ranges); the widgets turn it into their own text formats, and
// toHtml() gives rich text for a label.
#pragma once

#include "model/formatter.h"

#include <QVariantMap>

#include <vector>

namespace trovara::presentation {

// Attribute names of attributed text.
inline constexpr const char* kLinkAttribute = "link";                       // QUrl
inline constexpr const char* kForegroundColorAttribute = "foregroundColor";  // colour name, e.g. "blue"
inline constexpr const char* kUnderlineStyleAttribute = "underlineStyle";    // 1: single

struct AttributeRun {
    qsizetype start = 0;
    qsizetype length = 0;
    QVariantMap attributes;
};

// Text with attributes: the runs cover the text from start to end, in
// order, without gaps. A null string means "no text".
struct AttributedString {
    QString string;
    std::vector<AttributeRun> runs;

    bool isNull() const { return string.isNull(); }
    // The attributes of the character at the index (none outside the text).
    QVariantMap attributesAt(qsizetype index) const;
    // Rich text: the text escaped, links as <a href> in blue, underlined.
    QString toHtml() const;
};

class InspectorValueFormatter final : public model::Formatter {
public:
    // No value: no text. A value that is not a string is shown in its own
    // textual form.
    AttributedString attributedStringForObjectValue(const QVariant& value, const QVariantMap& defaultAttributes) const;
    // The plain characters of the attributed text.
    QString stringForObjectValue(const QVariant& value) const override;
};

}  // namespace trovara::presentation
