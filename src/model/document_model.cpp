#include "model/document_model.h"

#include "model/abstract_attribute.h"
#include "model/meta_attribute.h"
#include "model/ordered_column_attribute.h"
#include "model/query_leaf.h"
#include "model/scope.h"

namespace trovara::model {

namespace {

using store::AttributeType;
using store::DeleteRule;
using store::EntityDescription;

template <typename T>
EntityDescription::Factory factory()
{
    return [] { return std::make_unique<T>(); };
}

// The value fields a row and its remembered values share.
std::vector<store::AttributeDescription> queryValueAttributes()
{
    return {
        {QStringLiteral("queryString"), AttributeType::String, false, {}},
        {QStringLiteral("queryNumber"), AttributeType::Number, false, {}},
        {QStringLiteral("queryDate"), AttributeType::Date, false, {}},
        {QStringLiteral("queryBoolean"), AttributeType::Boolean, false, {}},
        {QStringLiteral("queryUnit"), AttributeType::String, false, {}},
    };
}

std::vector<EntityDescription> entities()
{
    std::vector<store::AttributeDescription> leafAttributes{
        {QStringLiteral("queryOperator"), AttributeType::String, false, {}}};
    for (store::AttributeDescription& attribute : queryValueAttributes()) {
        leafAttributes.push_back(attribute);
    }
    std::vector<store::AttributeDescription> valueAttributes{
        {QStringLiteral("attributeKey"), AttributeType::String, false, {}}};
    for (store::AttributeDescription& attribute : queryValueAttributes()) {
        valueAttributes.push_back(attribute);
    }

    std::vector<EntityDescription> list;
    // The criteria tree.
    list.emplace_back(QStringLiteral("QueryItem"), QString(), true, nullptr,
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("sortIndex"), AttributeType::Integer, false, {}}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("parent"), QStringLiteral("QueryNode"), QStringLiteral("children"), false,
                           DeleteRule::Nullify}});
    list.emplace_back(QStringLiteral("QueryNode"), QStringLiteral("QueryItem"), false, factory<QueryNode>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("operator"), AttributeType::String, false, {}}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("children"), QStringLiteral("QueryItem"), QStringLiteral("parent"), true,
                           DeleteRule::Cascade}});
    list.emplace_back(QStringLiteral("QueryLeaf"), QStringLiteral("QueryItem"), false, factory<QueryLeaf>(),
                      leafAttributes,
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("queryAttribute"), QStringLiteral("QueryAttribute"),
                           QStringLiteral("queryLeaves"), false, DeleteRule::Nullify},
                          {QStringLiteral("attributeValues"), QStringLiteral("AttributeValue"),
                           QStringLiteral("queryLeaf"), true, DeleteRule::Cascade}});
    list.emplace_back(QStringLiteral("AttributeValue"), QString(), false, factory<AttributeValue>(), valueAttributes,
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("queryLeaf"), QStringLiteral("QueryLeaf"), QStringLiteral("attributeValues"),
                           false, DeleteRule::Nullify}});
    // Document settings.
    list.emplace_back(QStringLiteral("MetaAttribute"), QString(), false, factory<MetaAttribute>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("attributeKey"), AttributeType::String, false, {}},
                          {QStringLiteral("attributeValue"), AttributeType::Binary, false, {}}},
                      std::vector<store::RelationshipDescription>{});
    // Attributes.
    list.emplace_back(QStringLiteral("AbstractAttribute"), QString(), true, nullptr,
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("attributeKey"), AttributeType::String, false, {}},
                          {QStringLiteral("attributeName"), AttributeType::String, false, {}},
                          {QStringLiteral("attributeType"), AttributeType::Integer, true, {}},
                          {QStringLiteral("attributeIsMultivalued"), AttributeType::Boolean, true, {}}},
                      std::vector<store::RelationshipDescription>{});
    list.emplace_back(QStringLiteral("QueryAttribute"), QStringLiteral("AbstractAttribute"), false,
                      factory<QueryAttribute>(), std::vector<store::AttributeDescription>{},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("queryLeaves"), QStringLiteral("QueryLeaf"), QStringLiteral("queryAttribute"),
                           true, DeleteRule::Nullify}});
    list.emplace_back(QStringLiteral("ColumnAttribute"), QStringLiteral("AbstractAttribute"), false,
                      factory<ColumnAttribute>(), std::vector<store::AttributeDescription>{},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("orderedColumnAttributes"), QStringLiteral("OrderedColumnAttribute"),
                           QStringLiteral("columnAttribute"), true, DeleteRule::Cascade}});
    list.emplace_back(QStringLiteral("LimitAttribute"), QStringLiteral("AbstractAttribute"), false,
                      factory<LimitAttribute>(), std::vector<store::AttributeDescription>{},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("valuedLimitAttributes"), QStringLiteral("ValuedLimitAttribute"),
                           QStringLiteral("limitAttribute"), true, DeleteRule::Nullify}});
    list.emplace_back(QStringLiteral("OrderedColumnAttribute"), QString(), false, factory<OrderedColumnAttribute>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("columnWidth"), AttributeType::Double, false, {}},
                          {QStringLiteral("sortIndex"), AttributeType::Integer, false, {}}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("columnAttribute"), QStringLiteral("ColumnAttribute"),
                           QStringLiteral("orderedColumnAttributes"), false, DeleteRule::Nullify}});
    list.emplace_back(QStringLiteral("ValuedLimitAttribute"), QString(), false, factory<ValuedLimitAttribute>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("limitValue"), AttributeType::Integer, false, {}},
                          {QStringLiteral("ascending"), AttributeType::Boolean, false, {}}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("limitAttribute"), QStringLiteral("LimitAttribute"),
                           QStringLiteral("valuedLimitAttributes"), false, DeleteRule::Nullify}});
    // Scopes.
    list.emplace_back(QStringLiteral("Scope"), QString(), false, factory<Scope>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("path"), AttributeType::String, false, {}},
                          {QStringLiteral("isConstant"), AttributeType::Boolean, false, false}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("orderedScopes"), QStringLiteral("OrderedScope"), QStringLiteral("scope"),
                           true, DeleteRule::Cascade},
                          {QStringLiteral("orderedExclusionScopes"), QStringLiteral("OrderedExclusionScope"),
                           QStringLiteral("scope"), true, DeleteRule::Cascade}});
    list.emplace_back(QStringLiteral("OrderedScope"), QString(), false, factory<OrderedScope>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("sortIndex"), AttributeType::Integer, false, {}}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("scope"), QStringLiteral("Scope"), QStringLiteral("orderedScopes"), false,
                           DeleteRule::Nullify}});
    list.emplace_back(QStringLiteral("OrderedExclusionScope"), QString(), false, factory<OrderedExclusionScope>(),
                      std::vector<store::AttributeDescription>{
                          {QStringLiteral("sortIndex"), AttributeType::Integer, false, {}}},
                      std::vector<store::RelationshipDescription>{
                          {QStringLiteral("scope"), QStringLiteral("Scope"), QStringLiteral("orderedExclusionScopes"),
                           false, DeleteRule::Nullify}});
    return list;
}

}  // namespace

std::shared_ptr<const store::ManagedObjectModel> documentModel()
{
    static const std::shared_ptr<const store::ManagedObjectModel> model = [] {
        Result<std::shared_ptr<const store::ManagedObjectModel>> built =
            store::ManagedObjectModel::create(QString::fromLatin1(kDocumentModelVersion), entities());
        // The model is part of the program: an invalid one is a build fault.
        if (!built) {
            qFatal("invalid document model: %s", qPrintable(built.error().toString()));
        }
        return built.value();
    }();
    return model;
}

std::unique_ptr<store::ManagedObjectContext> makeDocumentContext()
{
    return std::make_unique<store::ManagedObjectContext>(documentModel());
}

void primeContext(store::ManagedObjectContext& context)
{
    ColumnAttribute::primeContext(context);
    LimitAttribute::primeContext(context);
    OrderedColumnAttribute::primeContext(context);
    ValuedLimitAttribute::primeContext(context);
}

}  // namespace trovara::model
