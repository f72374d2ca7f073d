#include "model/meta_attribute.h"

#include "common/error_presenter.h"

namespace trovara::model {

MetaAttribute* MetaAttribute::metaAttributeWithKey(const QString& key, store::ManagedObjectContext& context,
                                                   bool create)
{
    Result<store::Predicate> predicate = store::Predicate::format(QStringLiteral("attributeKey == %@"), {key});
    Result<std::vector<MetaAttribute*>> found = context.fetch<MetaAttribute>(predicate.value(), {}, 1);
    if (!found) {
        presentError(found.error());
        return nullptr;
    }
    if (!found->empty()) {
        return found->front();
    }
    if (!create) {
        return nullptr;
    }
    auto* attribute = context.insert<MetaAttribute>();
    attribute->setAttributeKey(key);
    return attribute;
}

}  // namespace trovara::model
