// Shared pieces of the live-index tests: a real temporary tree, an index
// over it, and the truth to compare with, read straight from the disk.
#pragma once

#include "index/fs/type_tree.h"
#include "index/index.h"
#include "index/live/live_index.h"
#include "index/text/folding.h"
#include "test_support.h"

#include <QDir>
#include <QString>

#include <gtest/gtest.h>

#include <filesystem>
#include <atomic>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace trovara::test {

// Imports plain text in the test's own process: the file's bytes are its
// text content.
class TextFileImporter final : public index::ContentImporter {
public:
    index::Expected<std::vector<index::ImporterInfo>> importers() override
    {
        return std::vector<index::ImporterInfo>{{"text", "1", "", {"public.plain-text"}}};
    }
    index::Expected<void> importFiles(std::vector<index::ImportJob> jobs,
                                      const std::function<void(const index::ImportJob&, index::ImportOutcome&&)>& done,
                                      const std::atomic<bool>*) override
    {
        for (const index::ImportJob& job : jobs) {
            std::ifstream in(job.path, std::ios::binary);
            std::stringstream text;
            text << in.rdbuf();
            index::ImportOutcome outcome;
            outcome.imported = true;
            outcome.text = text.str();
            ++imports;
            done(job, std::move(outcome));
        }
        return {};
    }
    std::atomic<int> imports = 0;
};

inline index::IndexServices liveServices()
{
    index::IndexServices s;
    s.fold = [](std::string_view name) { return index::text::foldForCatalogue(name); };
    s.types = [](const std::string& mime) {
        return index::describeMimeType(mime.empty() ? "application/octet-stream" : mime);
    };
    s.lastUsed = [](const std::string&, const index::FileInfo&) { return index::Nanoseconds{0}; };
    return s;
}

inline void writeFile(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// Every path below `root` (not the root itself) whose name passes `keep`.
template <typename Keep>
std::set<std::string> pathsOnDisk(const std::string& root, Keep keep)
{
    std::set<std::string> paths;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(root, error);
         it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        if (keep(it->path())) {
            paths.insert(it->path().string());
        }
    }
    return paths;
}

// A temporary tree and an index over it, both removed afterwards.
class LiveTreeTest : public ::testing::Test {
protected:
    LiveTreeTest()
        : root(makeTemporaryFolder(QStringLiteral("tree")).toStdString())
        , outside(makeTemporaryFolder(QStringLiteral("outside")).toStdString())
        , directory(makeTemporaryFolder(QStringLiteral("index")).toStdString())
    {
    }
    ~LiveTreeTest() override
    {
        live.reset();
        for (const std::string& folder : {root, outside, directory}) {
            QDir(QString::fromStdString(folder)).removeRecursively();
        }
    }

    // Opens the index and indexes the tree as it is now.
    void indexTree()
    {
        auto opened = index::LiveIndex::open(directory, liveServices(), false);
        ASSERT_TRUE(opened.ok()) << opened.error().message;
        live = std::move(opened.value());
        auto added = live->addRoots({root}, {});
        ASSERT_TRUE(added.ok()) << added.error().message;
    }

    void apply(const std::vector<index::PathChange>& changes)
    {
        auto applied = live->apply(changes);
        ASSERT_TRUE(applied.ok()) << applied.error().message;
    }

    std::string at(const std::string& relative) const { return root + "/" + relative; }

    const std::string root;
    const std::string outside;
    const std::string directory;
    std::unique_ptr<index::LiveIndex> live;
};

}  // namespace trovara::test
