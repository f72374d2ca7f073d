// The controller under random live changes and random input changes (some
// while it gathers): after every step, once the query has settled, the
// result list must be the query's answer, that answer must be what is on
// disk, the rows must be filtered and ordered as asked, and the status line
// must count them. A model tester watches every signal of the table.
#include "controller_test_support.h"

#include <QAbstractItemModelTester>

#include <cstdlib>
#include <random>

namespace trovara::query {
namespace {

using Kind = index::PathChange::Kind;

class RandomLiveChanges : public test::ControllerTest {
protected:
    RandomLiveChanges()
    {
        for (const char* folder : {"a", "b", "b/c"}) {
            ::mkdir(at(folder).c_str(), 0755);
        }
    }

    std::string randomName()
    {
        static const char* syllables[] = {"re", "po", "RT", "nE", "xa", "mi", "lo", "ka", " "};
        std::string name;
        const int count = 1 + static_cast<int>(random() % 3);
        for (int i = 0; i < count; ++i) {
            name += syllables[random() % std::size(syllables)];
        }
        return name + (random() % 2 ? ".txt" : ".md");
    }

    std::string randomFolder()
    {
        static const char* folders[] = {"a", "b", "b/c"};
        return at(folders[random() % std::size(folders)]);
    }

    std::vector<std::string> files() const
    {
        std::set<std::string> all = test::pathsOnDisk(root, [](const std::filesystem::path& path) {
            return std::filesystem::is_regular_file(path);
        });
        return {all.begin(), all.end()};
    }

    // One change of the tree, told to the index.
    void changeFiles()
    {
        const std::vector<std::string> existing = files();
        const int kind = existing.empty() ? 0 : static_cast<int>(random() % 4);
        const std::string victim = existing.empty() ? std::string() : existing[random() % existing.size()];
        switch (kind) {
        case 0: {
            const std::string path = randomFolder() + "/" + randomName();
            test::writeFile(path, std::string(random() % 50, 'x'));
            test::setModified(path, 1600000000 + static_cast<std::time_t>(random() % 100000));
            apply({{Kind::Changed, path}});
            break;
        }
        case 1:
            ::unlink(victim.c_str());
            apply({{Kind::Removed, victim}});
            break;
        case 2: {
            const std::string target = randomFolder() + "/" + randomName();
            if (target != victim && ::rename(victim.c_str(), target.c_str()) == 0) {
                apply({{Kind::Removed, victim}, {Kind::Changed, target}});
            }
            break;
        }
        default:
            test::writeFile(victim, std::string(random() % 50, 'y'));
            test::setModified(victim, 1600000000 + static_cast<std::time_t>(random() % 100000));
            apply({{Kind::Changed, victim}});
            break;
        }
    }

    // One change of the controller's inputs, or of how it shows results.
    void changeInputs()
    {
        switch (random() % 8) {
        case 0:
            letter = random() % 2 ? "e" : "o";
            controller->setExpression(QStringLiteral("kMDItemDisplayName == '*%1*'c").arg(QString::fromStdString(letter)));
            break;
        case 1:
            excluded = random() % 2 ? std::string() : at(random() % 2 ? "b" : "a/");
            controller->setExcludedPaths(excluded.empty() ? QStringList() : QStringList{QString::fromStdString(excluded)});
            break;
        case 2:
            controller->setLimitKey(QStringLiteral("kMDItemContentModificationDate"));
            controller->setLimitAscending(random() % 2);
            controller->setLimitValue(random() % 2 ? 0 : 1 + static_cast<int>(random() % 6));
            break;
        case 3:
            controller->setFilterType(100 * (1 + static_cast<int>(random() % 4)));
            break;
        case 4: {
            static const char* texts[] = {"", "re", "PO", "b/", "x"};
            controller->setFilterString(QString::fromLatin1(texts[random() % std::size(texts)]));
            break;
        }
        case 5:
            controller->results()->sort(static_cast<int>(random() % 3),
                                        random() % 2 ? Qt::AscendingOrder : Qt::DescendingOrder);
            break;
        case 6:
            if (controller->isAlive()) {
                controller->stopQuery();
            }
            break;
        default:
            controller->startQuery();
            break;
        }
    }

    bool nameMatches(const std::string& path) const
    {
        const QString name = QString::fromStdString(path.substr(path.rfind('/') + 1));
        return name.contains(QString::fromStdString(letter), Qt::CaseInsensitive);
    }

    void checkAgainstTheQueryAndTheDisk()
    {
        ResultTableModel& table = *controller->results();
        index::LiveQuery* query = controller->metadataQuery();
        if (!query) {
            ASSERT_TRUE(controller->resultArray().empty());
            ASSERT_EQ(table.rowCount(), 0);
            // A filter changed after stopping rewrites the status line.
            ASSERT_TRUE(controller->statusLine() == QStringLiteral("Results")
                        || controller->statusLine() == QStringLiteral("No files found"))
                << controller->statusLine().toStdString();
            return;
        }
        ASSERT_EQ(controller->state(), MetadataQueryController::State::Live);

        // The list is the query's answer, up to the limit.
        const int limit = controller->limitValue();
        std::set<const void*> answer;
        for (std::size_t i = 0; i < query->resultCount() && (limit <= 0 || answer.size() < static_cast<std::size_t>(limit)); ++i) {
            answer.insert(query->resultAt(i).get());
        }
        std::set<const void*> listed;
        for (const auto& item : controller->resultArray()) {
            listed.insert(item.get());
        }
        ASSERT_EQ(listed, answer);

        // The answer is what is on disk: the tree's files, its folders and
        // the tree itself.
        std::set<std::string> entries = test::pathsOnDisk(root, [](const std::filesystem::path&) { return true; });
        entries.insert(root);
        std::size_t truth = 0;
        std::set<QString> truePaths;
        for (const std::string& path : entries) {
            if (nameMatches(path) && (excluded.empty() || path.rfind(excluded, 0) != 0)) {
                ++truth;
                truePaths.insert(QString::fromStdString(path));
            }
        }
        const std::size_t expected = limit > 0 ? std::min(truth, static_cast<std::size_t>(limit)) : truth;
        ASSERT_EQ(controller->resultArray().size(), expected);
        if (limit <= 0) {
            std::set<QString> paths;
            for (const auto& item : controller->resultArray()) {
                paths.insert(item->path());
            }
            ASSERT_EQ(paths, truePaths);
        }

        // The rows are the filtered list, in order.
        const QString text = controller->filterString();
        const FilterKind* kind = filterKindForTag(controller->filterType());
        std::size_t shown = 0;
        for (const auto& item : controller->resultArray()) {
            const QString& subject = kind && kind->byPath ? item->path() : item->displayName();
            shown += text.isEmpty() || !kind || subject.contains(text, Qt::CaseInsensitive) != kind->excludes ? 1 : 0;
        }
        ASSERT_EQ(static_cast<std::size_t>(table.rowCount()), shown);
        const auto& order = table.sortDescriptors();
        for (int row = 0; row + 1 < table.rowCount(); ++row) {
            for (const presentation::SortDescriptor& descriptor : order) {
                const int c = descriptor.compare(table.arrangedObjectAt(row)->valueForKeyPath(descriptor.key),
                                                 table.arrangedObjectAt(row + 1)->valueForKeyPath(descriptor.key));
                ASSERT_LE(c, 0) << "rows " << row << " and " << row + 1 << " by " << descriptor.key.toStdString() << ": "
                                << table.arrangedObjectAt(row)->path().toStdString() << " / "
                                << table.arrangedObjectAt(row + 1)->path().toStdString();
                if (c < 0) {
                    break;
                }
            }
        }

        // The status line counts them.
        QString status;
        if (expected == 0) {
            status = QStringLiteral("No files found");
        } else if (text.isEmpty()) {
            status = QStringLiteral("%1 %2").arg(expected).arg(expected == 1 ? "file found" : "files found");
        } else {
            status = QStringLiteral("%1 of %2 shown").arg(shown).arg(expected);
        }
        ASSERT_EQ(controller->statusLine(), status);
    }

    long random() { return static_cast<long>(engine() >> 1); }

    std::mt19937 engine;
    std::string letter = "e";
    std::string excluded;
};

TEST_F(RandomLiveChanges, TheListAlwaysEndsAsTheQueryAndTheDiskSay)
{
    // TROVARA_TEST_SEED repeats a run that failed.
    const char* chosen = std::getenv("TROVARA_TEST_SEED");
    const unsigned seed = chosen ? static_cast<unsigned>(std::strtoul(chosen, nullptr, 10)) : std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    engine.seed(seed);
    for (int i = 0; i < 25; ++i) {
        const std::string path = randomFolder() + "/" + randomName();
        test::writeFile(path, std::string(random() % 50, 'x'));
        test::setModified(path, 1600000000 + static_cast<std::time_t>(random() % 100000));
    }
    makeController();
    QAbstractItemModelTester tester(controller->results(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    controller->setExpression(QStringLiteral("kMDItemDisplayName == '*e*'c"));
    controller->setSearchScopes({QString::fromStdString(root)});
    controller->startQuery();

    for (int step = 0; step < 120; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        if (random() % 3 == 0) {
            changeInputs();
            // Sometimes the next change comes while the query still gathers.
            if (random() % 2) {
                QCoreApplication::sendPostedEvents();
                dispatcher->runReady();
                continue;
            }
        } else {
            changeFiles();
        }
        ASSERT_TRUE(settle());
        checkAgainstTheQueryAndTheDisk();
        if (HasFatalFailure()) {
            return;
        }
    }
}

}  // namespace
}  // namespace trovara::query
