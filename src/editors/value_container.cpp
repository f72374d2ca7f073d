#include "editors/value_container.h"

#include "model/value_text.h"

namespace trovara::editors {

void ValueContainer::set(QVariant& field, const QVariant& value)
{
    field = value;
    emit valuesChanged();
    if (m_shouldUpdatePredicate && m_update) {
        m_update(*this);
    }
}

void ValueContainer::copyValuesFrom(const ValueContainer& other)
{
    m_queryBoolean = other.m_queryBoolean;
    m_queryDate = other.m_queryDate;
    m_queryNumber = other.m_queryNumber;
    m_queryOperator = other.m_queryOperator;
    m_queryString = other.m_queryString;
    m_queryUnit = other.m_queryUnit;
    m_attributeKey = other.m_attributeKey;
    emit valuesChanged();
}

QString ValueContainer::description() const
{
    QString text = QStringLiteral("<ValueContainer 0x%1>").arg(reinterpret_cast<quintptr>(this), 0, 16);
    const std::pair<const char*, const QVariant*> fields[] = {
        {", queryBoolean:%1", &m_queryBoolean}, {", queryDate:%1", &m_queryDate},
        {", queryNumber:%1", &m_queryNumber},   {", queryOperator:%1", &m_queryOperator},
        {", queryString:%1", &m_queryString},   {", queryUnit:%1", &m_queryUnit},
    };
    for (const auto& [format, value] : fields) {
        if (value->isValid()) {
            text += QString::fromLatin1(format).arg(model::descriptionOf(*value));
        }
    }
    return text;
}

}  // namespace trovara::editors
