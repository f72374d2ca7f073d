#include "presentation/multivalue_formatter.h"

#include "model/value_text.h"

namespace trovara::presentation {

MultivalueFormatter::MultivalueFormatter(std::shared_ptr<const model::Formatter> baseFormatter)
    : m_baseFormatter(std::move(baseFormatter))
{
}

QVariant MultivalueFormatter::objectForObjectValue(const QVariant& value) const
{
    if (!value.isValid() || value.isNull()) {
        return {};
    }
    const QMetaType type = value.metaType();
    if (type != QMetaType::fromType<QVariantList>() && type != QMetaType::fromType<QStringList>()) {
        return value;
    }
    QString text(QLatin1String(""));  // an empty list is an empty text, not none
    for (const QVariant& element : value.toList()) {
        const QString piece = m_baseFormatter ? m_baseFormatter->stringForObjectValue(element)
                                              : (model::isText(element) ? element.toString() : model::descriptionOf(element));
        if (!text.isEmpty()) {
            text += QStringLiteral(", ");
        }
        text += piece;
    }
    return text;
}

QString MultivalueFormatter::stringForObjectValue(const QVariant& value) const
{
    const QVariant object = objectForObjectValue(value);
    if (!object.isValid()) {
        return {};
    }
    return model::isText(object) ? object.toString() : model::descriptionOf(object);
}

}  // namespace trovara::presentation
