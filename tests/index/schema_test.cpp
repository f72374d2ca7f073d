#include "index/schema.h"

#include <gtest/gtest.h>

#include <set>

using trovara::index::Schema;
using trovara::index::ValueType;

TEST(Schema, KnowsTheFileSystemAttributesWithTheirTypes)
{
    const Schema& schema = Schema::builtin();
    struct Case {
        const char* key;
        ValueType type;
        bool list;
    };
    const Case cases[] = {
        {"kMDItemDisplayName", ValueType::String, false},  {"kMDItemFSSize", ValueType::Number, false},
        {"kMDItemFSContentChangeDate", ValueType::Date, false}, {"kMDItemFSInvisible", ValueType::Boolean, false},
        {"kMDItemContentTypeTree", ValueType::String, true}, {"kOMUserTags", ValueType::String, true},
        {"kMDItemTextContent", ValueType::String, false},  {"kMDItemFSLabel", ValueType::Number, false},
    };
    for (const Case& c : cases) {
        const auto* info = schema.find(c.key);
        ASSERT_NE(info, nullptr) << c.key;
        EXPECT_EQ(info->type, c.type) << c.key;
        EXPECT_EQ(info->multivalued, c.list) << c.key;
        EXPECT_FALSE(info->displayName.empty()) << c.key;
    }
}

TEST(Schema, KeysAreCaseSensitiveAndUnknownKeysAreAbsent)
{
    const Schema& schema = Schema::builtin();
    EXPECT_EQ(schema.find("kmditemdisplayname"), nullptr);
    EXPECT_EQ(schema.find("kMDItemNoSuchThing"), nullptr);
    EXPECT_EQ(schema.find(""), nullptr);
}

TEST(Schema, KeysAreUniqueAndAnyTextLeavesOutPathsTypesAndContent)
{
    std::set<std::string> keys;
    for (const auto& info : Schema::builtin().attributes()) {
        EXPECT_TRUE(keys.insert(info.key).second) << "duplicate " << info.key;
        if (info.anyText) {
            EXPECT_EQ(info.type, ValueType::String) << info.key;
        }
    }
    for (const char* key : {"kMDItemPath", "kMDItemContentType", "kMDItemContentTypeTree", "kMDItemTextContent"}) {
        EXPECT_FALSE(Schema::builtin().find(key)->anyText) << key;
    }
    EXPECT_TRUE(Schema::builtin().find("kMDItemDisplayName")->anyText);
}
