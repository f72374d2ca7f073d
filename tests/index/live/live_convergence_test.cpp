// Random sequences of file-system changes on a real tree, reported as the
// watcher reports them (exactly, or only as "this folder changed", or "this
// tree changed"): after every batch, each live query's answer equals what
// is on disk, and its updates, replayed, give the same answer, with nothing
// lost or reported twice.
#include "index/live/live_query.h"
#include "live_test_support.h"
#include "manual_dispatcher.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <random>

namespace trovara::index {
namespace {

using Kind = PathChange::Kind;
namespace fs = std::filesystem;

bool nameHasA(const fs::path& path)
{
    const std::string name = path.filename().string();
    return std::any_of(name.begin(), name.end(), [](char c) { return c == 'a' || c == 'A'; });
}

// Follows a query's notifications to rebuild its answer from them alone.
struct Replay {
    std::set<std::string> paths;
    std::vector<std::string> faults;

    void attach(LiveQuery& query)
    {
        query.onFinished = [this, &query] {
            for (std::size_t i = 0; i < query.resultCount(); ++i) {
                paths.insert(query.itemAt(i).path());
            }
        };
        query.onUpdate = [this](const LiveQuery::Update& update) {
            for (const auto& result : update.removed) {
                const std::string& path = static_cast<const ItemRef*>(result.get())->path();
                if (paths.erase(path) == 0) {
                    faults.push_back("removed but never added: " + path);
                }
            }
            for (const auto& result : update.added) {
                const std::string& path = static_cast<const ItemRef*>(result.get())->path();
                if (!paths.insert(path).second) {
                    faults.push_back("added twice: " + path);
                }
            }
            for (const auto& result : update.changed) {
                const std::string& path = static_cast<const ItemRef*>(result.get())->path();
                if (!paths.count(path)) {
                    faults.push_back("changed but not a result: " + path);
                }
            }
        };
    }
};

class Convergence : public test::LiveTreeTest, public ::testing::WithParamInterface<unsigned> {
protected:
    // Picks an existing entry below the root (files and folders), or none.
    std::optional<std::string> pickEntry(bool foldersOnly = false)
    {
        std::vector<std::string> entries;
        for (const std::string& path : test::pathsOnDisk(root, [](const auto&) { return true; })) {
            if (!foldersOnly || fs::is_directory(path)) {
                entries.push_back(path);
            }
        }
        if (entries.empty()) {
            return std::nullopt;
        }
        return entries[std::uniform_int_distribution<std::size_t>(0, entries.size() - 1)(random)];
    }

    std::string pickFolder()
    {
        if (std::bernoulli_distribution(0.3)(random)) {
            return root;
        }
        return pickEntry(true).value_or(root);
    }

    std::string newName()
    {
        static const char letters[] = "abAxyz01";
        std::string name;
        const int length = std::uniform_int_distribution<int>(1, 6)(random);
        for (int i = 0; i < length; ++i) {
            name += letters[std::uniform_int_distribution<std::size_t>(0, sizeof letters - 2)(random)];
        }
        return name + "-" + std::to_string(serial++);
    }

    std::string content() { return std::string(std::uniform_int_distribution<std::size_t>(0, 300)(random), 'c'); }

    // One random change on disk, and how the watcher would report it.
    std::vector<PathChange> changeSomething()
    {
        const int what = std::uniform_int_distribution<int>(0, 7)(random);
        switch (what) {
        case 0:
        case 1: {  // a new file
            const std::string path = pickFolder() + "/" + newName();
            test::writeFile(path, content());
            return {{Kind::Changed, path}};
        }
        case 2: {  // a new folder, filled before it is noticed
            const std::string path = pickFolder() + "/" + newName();
            ::mkdir(path.c_str(), 0755);
            for (int i = std::uniform_int_distribution<int>(0, 3)(random); i > 0; --i) {
                test::writeFile(path + "/" + newName(), content());
            }
            return {{Kind::Changed, path}};
        }
        case 3: {  // written to
            auto path = pickEntry();
            if (!path || fs::is_directory(*path)) {
                return {};
            }
            test::writeFile(*path, content());
            return {{Kind::Changed, *path}};
        }
        case 4: {  // deleted, with everything inside
            auto path = pickEntry();
            if (!path) {
                return {};
            }
            fs::remove_all(*path);
            return {{Kind::Removed, *path}};
        }
        case 5: {  // renamed within the tree
            auto path = pickEntry();
            if (!path) {
                return {};
            }
            const std::string folder = pickFolder();
            if (isPathAtOrBelow(folder, *path)) {
                return {};  // not into itself
            }
            const std::string target = folder + "/" + newName();
            if (::rename(path->c_str(), target.c_str()) != 0) {
                return {};
            }
            return {{Kind::Removed, *path}, {Kind::Changed, target}};
        }
        case 6: {  // moved out of the tree
            auto path = pickEntry();
            if (!path) {
                return {};
            }
            ::rename(path->c_str(), (outside + "/" + newName()).c_str());
            return {{Kind::Removed, *path}};
        }
        default: {  // moved in from outside
            const std::string staging = outside + "/" + newName();
            test::writeFile(staging, content());
            const std::string target = pickFolder() + "/" + newName();
            ::rename(staging.c_str(), target.c_str());
            return {{Kind::Changed, target}};
        }
        }
    }

    // The same change, less exactly: as "this folder's entries changed".
    static std::vector<PathChange> vaguely(const std::vector<PathChange>& changes)
    {
        std::vector<PathChange> vague;
        for (const PathChange& change : changes) {
            const std::string parent = fs::path(change.path).parent_path().string();
            vague.push_back({Kind::FolderChanged, parent});
            if (change.kind == Kind::Changed) {
                vague.push_back(change);  // a write inside is still reported as such
            }
        }
        return vague;
    }

    void settle(LiveQuery& query) { ASSERT_TRUE(dispatcher->runUntilIdle(query)) << "the query never settled"; }

    std::mt19937 random{GetParam()};
    int serial = 0;
    std::shared_ptr<test::ManualDispatcher> dispatcher = std::make_shared<test::ManualDispatcher>();
};

TEST_P(Convergence, LiveAnswersEqualTheDiskAfterEveryBatch)
{
    ::mkdir(at("start").c_str(), 0755);
    test::writeFile(at("start/alpha"), "a");
    test::writeFile(at("start/beta"), "bb");
    indexTree();
    live->setRebuildThreshold(40);  // now and then the catalogue is built anew mid-sequence
    LiveIndexSource source(*live);

    LiveQueryOptions byName;
    byName.query = R"(kMDItemFSName == "*a*"c)";
    byName.batching.updateCount = 7;
    LiveQueryOptions bySize;
    bySize.query = "kMDItemFSSize >= 150 && kMDItemContentType != 'public.folder'";
    LiveQuery nameQuery(source, dispatcher, byName);
    LiveQuery sizeQuery(source, dispatcher, bySize);
    Replay nameReplay;
    Replay sizeReplay;
    nameReplay.attach(nameQuery);
    sizeReplay.attach(sizeQuery);
    ASSERT_TRUE(nameQuery.execute().ok());
    ASSERT_TRUE(sizeQuery.execute().ok());

    auto expectConverged = [&](int step) {
        settle(nameQuery);
        settle(sizeQuery);
        auto results = [](const LiveQuery& query) {
            std::set<std::string> set;
            for (std::size_t i = 0; i < query.resultCount(); ++i) {
                set.insert(query.itemAt(i).path());
            }
            return set;
        };
        std::set<std::string> named = test::pathsOnDisk(root, nameHasA);
        if (nameHasA(root)) {
            named.insert(root);
        }
        const std::set<std::string> large = test::pathsOnDisk(root, [](const fs::path& path) {
            return fs::is_regular_file(path) && fs::file_size(path) >= 150;
        });
        ASSERT_EQ(results(nameQuery), named) << "step " << step;
        ASSERT_EQ(nameReplay.paths, named) << "step " << step;
        ASSERT_EQ(results(sizeQuery), large) << "step " << step;
        ASSERT_EQ(sizeReplay.paths, large) << "step " << step;
        ASSERT_TRUE(nameReplay.faults.empty()) << "step " << step << ": " << nameReplay.faults.front();
        ASSERT_TRUE(sizeReplay.faults.empty()) << "step " << step << ": " << sizeReplay.faults.front();
    };
    expectConverged(0);

    for (int step = 1; step <= 60; ++step) {
        // Several batches may reach the index before a query's update goes
        // out: an item can come and go, or come and change, in between.
        const int batches = std::bernoulli_distribution(0.3)(random) ? 3 : 1;
        const bool suspend = std::bernoulli_distribution(0.2)(random);
        if (suspend) {
            nameQuery.suspendUpdates();
        }
        for (int b = 0; b < batches; ++b) {
            std::vector<PathChange> batch;
            for (int i = std::uniform_int_distribution<int>(1, 5)(random); i > 0; --i) {
                std::vector<PathChange> changes = changeSomething();
                const int exactness = std::uniform_int_distribution<int>(0, 19)(random);
                if (exactness == 0) {
                    changes = {{Kind::TreeChanged, root}};
                } else if (exactness < 5) {
                    changes = vaguely(changes);
                }
                batch.insert(batch.end(), changes.begin(), changes.end());
            }
            auto applied = live->apply(batch);
            ASSERT_TRUE(applied.ok()) << applied.error().message;
            dispatcher->runReady();  // delivered to the queries, their updates not yet sent
        }
        if (suspend) {
            nameQuery.resumeUpdates();
        }
        expectConverged(step);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Convergence, ::testing::Range(1u, 13u));

}  // namespace
}  // namespace trovara::index
