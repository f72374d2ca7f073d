// Value transformers: stored forms to shared vocabulary objects and back,
// registered by name so that user-interface bindings can name them.
//
// A transformed vocabulary object travels in a QVariant as a
// `const trovara::model::Value*` pointing at the shared instance.
//
// Thread safety: registration happens at start-up on the main thread;
// transformers themselves are stateless and may be used anywhere.
#pragma once

#include "model/content_type.h"
#include "model/finder_label_value.h"
#include "model/relational_operator.h"
#include "model/value.h"

#include <QMetaType>
#include <QStringList>
#include <QVariant>

#include <memory>

Q_DECLARE_METATYPE(const trovara::model::Value*)

namespace trovara::model {

class ValueTransformer {
public:
    virtual ~ValueTransformer();

    virtual QVariant transformedValue(const QVariant& value) const = 0;
    virtual QVariant reverseTransformedValue(const QVariant& value) const;
    virtual bool allowsReverseTransformation() const { return true; }

    // The registry.
    static void setValueTransformer(const QString& name, std::shared_ptr<const ValueTransformer> transformer);
    static const ValueTransformer* valueTransformerForName(const QString& name);
    static QStringList valueTransformerNames();
};

// Looks a stored form up in a vocabulary's complete list; an unknown or
// missing form gives no object. The reverse gives the representation.
template <typename T>
class LookupTransformer : public ValueTransformer {
public:
    // The shared object for the stored form, or nullptr.
    const T* lookup(const QVariant& stored) const
    {
        if (!stored.isValid()) {
            return nullptr;
        }
        const Value probe(stored);
        for (const T* member : members()) {
            if (member->isEqual(probe)) {
                return member;
            }
        }
        return nullptr;
    }

    QVariant transformedValue(const QVariant& value) const override
    {
        const T* found = lookup(value);
        return found ? QVariant::fromValue<const Value*>(found) : QVariant();
    }

    QVariant reverseTransformedValue(const QVariant& value) const override
    {
        const Value* object = value.value<const Value*>();
        return object ? object->representation() : QVariant();
    }

protected:
    virtual const std::vector<const T*>& members() const = 0;
};

class BooleanOperatorTransformer final : public LookupTransformer<BooleanOperator> {
public:
    static const BooleanOperatorTransformer* sharedInstance();

protected:
    const std::vector<const BooleanOperator*>& members() const override;
};

class RelationalOperatorTransformer final : public LookupTransformer<RelationalOperator> {
public:
    static const RelationalOperatorTransformer* sharedInstance();

protected:
    const std::vector<const RelationalOperator*>& members() const override;
};

class UnitTransformer final : public LookupTransformer<Unit> {
public:
    static const UnitTransformer* sharedInstance();

protected:
    const std::vector<const Unit*>& members() const override;
};

class ContentTypeTransformer final : public LookupTransformer<ContentType> {
public:
    static const ContentTypeTransformer* sharedInstance();

protected:
    const std::vector<const ContentType*>& members() const override;
};

class FinderLabelTransformer final : public LookupTransformer<FinderLabelValue> {
public:
    static const FinderLabelTransformer* sharedInstance();

protected:
    const std::vector<const FinderLabelValue*>& members() const override;
};

// A number: true gives the yes value, false the no value; anything else
// gives no object.
class BooleanValueTransformer final : public ValueTransformer {
public:
    static const BooleanValueTransformer* sharedInstance();
    const BooleanValue* lookup(const QVariant& stored) const;
    QVariant transformedValue(const QVariant& value) const override;
    QVariant reverseTransformedValue(const QVariant& value) const override;
};

// One-way: whether a list is empty (or not), for enabling controls.
class EmptyArrayTransformer final : public ValueTransformer {
public:
    explicit EmptyArrayTransformer(bool answerWhenEmpty) : m_answerWhenEmpty(answerWhenEmpty) {}
    QVariant transformedValue(const QVariant& value) const override;
    bool allowsReverseTransformation() const override { return false; }

private:
    bool m_answerWhenEmpty;
};

// Registers the transformers of the query model under their names:
// "booleanOperatorTransformer", "booleanValueTransformer",
// "contentTypeTransformer", "relationalOperatorTransformer",
// "unitTransformer", "finderLabelTransformer", "emptyArrayTransformer",
// "nonEmptyArrayTransformer". Safe to call more than once.
void registerModelTransformers();

}  // namespace trovara::model
