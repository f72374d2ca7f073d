#include "presentation/detail_value_formatter.h"

#include "model/value_text.h"

#include <QUrl>

namespace trovara::presentation {

namespace {

// Where a link at the start of the text ends, or -1 when it has none.
qsizetype linkEnd(const QString& text)
{
    static const QLatin1String schemes[] = {QLatin1String("http://"), QLatin1String("https://"),
                                            QLatin1String("ftp://")};
    bool isLink = false;
    for (const QLatin1String& scheme : schemes) {
        isLink = isLink || text.startsWith(scheme, Qt::CaseSensitive);
    }
    if (!isLink) {
        return -1;
    }
    qsizetype end = 0;
    while (end < text.size() && text.at(end) != QLatin1Char(',') && !text.at(end).isSpace()) {
        ++end;
    }
    return end;
}

}  // namespace

QVariantMap AttributedString::attributesAt(qsizetype index) const
{
    for (const AttributeRun& run : runs) {
        if (index >= run.start && index < run.start + run.length) {
            return run.attributes;
        }
    }
    return {};
}

QString AttributedString::toHtml() const
{
    QString html;
    for (const AttributeRun& run : runs) {
        const QString piece = string.mid(run.start, run.length).toHtmlEscaped();
        const QVariant link = run.attributes.value(QLatin1String(kLinkAttribute));
        if (link.isValid()) {
            html += QStringLiteral("<a href=\"%1\" style=\"color: %2; text-decoration: underline\">%3</a>")
                        .arg(link.toUrl().toString(QUrl::FullyEncoded).toHtmlEscaped(),
                             run.attributes.value(QLatin1String(kForegroundColorAttribute)).toString(), piece);
        } else {
            html += piece;
        }
    }
    return html;
}

AttributedString InspectorValueFormatter::attributedStringForObjectValue(const QVariant& value,
                                                                         const QVariantMap& defaultAttributes) const
{
    if (!value.isValid() || value.isNull()) {
        return {};
    }
    AttributedString result;
    result.string = model::isText(value) ? value.toString() : model::descriptionOf(value);
    if (result.string.isEmpty()) {
        return result;
    }
    const qsizetype end = linkEnd(result.string);
    if (end > 0) {
        QVariantMap link = defaultAttributes;
        link.insert(QLatin1String(kLinkAttribute), QUrl(result.string.left(end)));
        link.insert(QLatin1String(kForegroundColorAttribute), QStringLiteral("blue"));
        link.insert(QLatin1String(kUnderlineStyleAttribute), 1);
        result.runs.push_back({0, end, link});
    }
    const qsizetype rest = end > 0 ? end : 0;
    if (rest < result.string.size()) {
        result.runs.push_back({rest, result.string.size() - rest, defaultAttributes});
    }
    return result;
}

QString InspectorValueFormatter::stringForObjectValue(const QVariant& value) const
{
    return attributedStringForObjectValue(value, {}).string;
}

}  // namespace trovara::presentation
