#include "test_model.h"

namespace trovara::store::test {

std::shared_ptr<const ManagedObjectModel> testModel()
{
    static const std::shared_ptr<const ManagedObjectModel> model = [] {
        std::vector<EntityDescription> entities;
        entities.emplace_back(QStringLiteral("Item"), QString(), true, nullptr,
                              std::vector<AttributeDescription>{
                                  {QStringLiteral("name"), AttributeType::String, false, {}},
                                  {QStringLiteral("rank"), AttributeType::Integer, false, 0},
                                  {QStringLiteral("scratch"), AttributeType::String, true, {}}},
                              std::vector<RelationshipDescription>{
                                  {QStringLiteral("parent"), QStringLiteral("Folder"), QStringLiteral("children"),
                                   false, DeleteRule::Nullify}});
        entities.emplace_back(QStringLiteral("Folder"), QStringLiteral("Item"), false,
                              [] { return std::make_unique<Folder>(); }, std::vector<AttributeDescription>{},
                              std::vector<RelationshipDescription>{
                                  {QStringLiteral("children"), QStringLiteral("Item"), QStringLiteral("parent"), true,
                                   DeleteRule::Cascade}});
        entities.emplace_back(QStringLiteral("File"), QStringLiteral("Item"), false,
                              [] { return std::make_unique<File>(); },
                              std::vector<AttributeDescription>{
                                  {QStringLiteral("size"), AttributeType::Number, false, {}},
                                  {QStringLiteral("modified"), AttributeType::Date, false, {}},
                                  {QStringLiteral("data"), AttributeType::Binary, false, {}},
                                  {QStringLiteral("ratio"), AttributeType::Double, false, {}},
                                  {QStringLiteral("hidden"), AttributeType::Boolean, false, {}}},
                              std::vector<RelationshipDescription>{
                                  {QStringLiteral("tag"), QStringLiteral("Tag"), QStringLiteral("files"), false,
                                   DeleteRule::Nullify}});
        entities.emplace_back(QStringLiteral("Tag"), QString(), false, nullptr,
                              std::vector<AttributeDescription>{
                                  {QStringLiteral("label"), AttributeType::String, false, {}}},
                              std::vector<RelationshipDescription>{
                                  {QStringLiteral("files"), QStringLiteral("File"), QStringLiteral("tag"), true,
                                   DeleteRule::Nullify}});
        return ManagedObjectModel::create(QStringLiteral("Test 1"), std::move(entities)).value();
    }();
    return model;
}

}  // namespace trovara::store::test
