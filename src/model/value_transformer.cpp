#include "model/value_transformer.h"

#include "model/value_text.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

#include <map>

namespace trovara::model {

namespace {

struct Registry {
    QMutex mutex;
    std::map<QString, std::shared_ptr<const ValueTransformer>> transformers;
};

Registry& registry()
{
    static Registry instance;
    return instance;
}

// Shared instances live as long as the registry may hand them out.
template <typename T>
const T* shared()
{
    static const T instance;
    return &instance;
}

template <typename T>
std::shared_ptr<const ValueTransformer> unowned(const T* transformer)
{
    return std::shared_ptr<const ValueTransformer>(transformer, [](const ValueTransformer*) {});
}

}  // namespace

ValueTransformer::~ValueTransformer() = default;

QVariant ValueTransformer::reverseTransformedValue(const QVariant&) const
{
    return {};
}

void ValueTransformer::setValueTransformer(const QString& name, std::shared_ptr<const ValueTransformer> transformer)
{
    QMutexLocker lock(&registry().mutex);
    if (transformer) {
        registry().transformers[name] = std::move(transformer);
    } else {
        registry().transformers.erase(name);
    }
}

const ValueTransformer* ValueTransformer::valueTransformerForName(const QString& name)
{
    QMutexLocker lock(&registry().mutex);
    auto it = registry().transformers.find(name);
    return it == registry().transformers.end() ? nullptr : it->second.get();
}

QStringList ValueTransformer::valueTransformerNames()
{
    QMutexLocker lock(&registry().mutex);
    QStringList names;
    for (const auto& [name, transformer] : registry().transformers) {
        names << name;
    }
    return names;
}

const BooleanOperatorTransformer* BooleanOperatorTransformer::sharedInstance()
{
    return shared<BooleanOperatorTransformer>();
}

const std::vector<const BooleanOperator*>& BooleanOperatorTransformer::members() const
{
    return BooleanOperator::booleanOperators();
}

const RelationalOperatorTransformer* RelationalOperatorTransformer::sharedInstance()
{
    return shared<RelationalOperatorTransformer>();
}

const std::vector<const RelationalOperator*>& RelationalOperatorTransformer::members() const
{
    return RelationalOperator::relationalOperators();
}

const UnitTransformer* UnitTransformer::sharedInstance()
{
    return shared<UnitTransformer>();
}

const std::vector<const Unit*>& UnitTransformer::members() const
{
    return Unit::units();
}

const ContentTypeTransformer* ContentTypeTransformer::sharedInstance()
{
    return shared<ContentTypeTransformer>();
}

const std::vector<const ContentType*>& ContentTypeTransformer::members() const
{
    return ContentType::contentTypes();
}

const FinderLabelTransformer* FinderLabelTransformer::sharedInstance()
{
    return shared<FinderLabelTransformer>();
}

const std::vector<const FinderLabelValue*>& FinderLabelTransformer::members() const
{
    return FinderLabelValue::finderLabelValues();
}

const BooleanValueTransformer* BooleanValueTransformer::sharedInstance()
{
    return shared<BooleanValueTransformer>();
}

const BooleanValue* BooleanValueTransformer::lookup(const QVariant& stored) const
{
    if (!isNumber(stored)) {
        return nullptr;
    }
    return doubleValueOf(stored) != 0 ? BooleanValue::yesValue() : BooleanValue::noValue();
}

QVariant BooleanValueTransformer::transformedValue(const QVariant& value) const
{
    const BooleanValue* found = lookup(value);
    return found ? QVariant::fromValue<const Value*>(found) : QVariant();
}

QVariant BooleanValueTransformer::reverseTransformedValue(const QVariant& value) const
{
    const Value* object = value.value<const Value*>();
    return object ? object->representation() : QVariant();
}

QVariant EmptyArrayTransformer::transformedValue(const QVariant& value) const
{
    const bool empty = value.toList().isEmpty();
    return empty == m_answerWhenEmpty;
}

void registerModelTransformers()
{
    ValueTransformer::setValueTransformer(QStringLiteral("booleanOperatorTransformer"),
                                          unowned(BooleanOperatorTransformer::sharedInstance()));
    ValueTransformer::setValueTransformer(QStringLiteral("booleanValueTransformer"),
                                          unowned(BooleanValueTransformer::sharedInstance()));
    ValueTransformer::setValueTransformer(QStringLiteral("contentTypeTransformer"),
                                          unowned(ContentTypeTransformer::sharedInstance()));
    ValueTransformer::setValueTransformer(QStringLiteral("relationalOperatorTransformer"),
                                          unowned(RelationalOperatorTransformer::sharedInstance()));
    ValueTransformer::setValueTransformer(QStringLiteral("unitTransformer"), unowned(UnitTransformer::sharedInstance()));
    ValueTransformer::setValueTransformer(QStringLiteral("finderLabelTransformer"),
                                          unowned(FinderLabelTransformer::sharedInstance()));
    ValueTransformer::setValueTransformer(QStringLiteral("emptyArrayTransformer"),
                                          std::make_shared<EmptyArrayTransformer>(true));
    ValueTransformer::setValueTransformer(QStringLiteral("nonEmptyArrayTransformer"),
                                          std::make_shared<EmptyArrayTransformer>(false));
}

}  // namespace trovara::model
