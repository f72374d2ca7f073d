// The text preview without its window: what it shows for the selection,
// the coloured terms, the search field, stale reads dropped, faults shown as
// a message.
#include "preview/text_preview.h"

#include "preview_test_support.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>

namespace trovara::preview {

namespace {

using test::waitUntil;

FileContents text(const std::string& words)
{
    FileContents contents;
    contents.outcome = FileContents::Outcome::Text;
    contents.text = words;
    return contents;
}

// Files by path; a held file is read only once released (or given up).
class ScriptedReader {
public:
    // `limit` cuts the text as the helper does; a read of the whole text
    // waits too while the rest of the file is held.
    FileContents read(const std::string& path, const std::atomic<bool>* cancel, std::uint64_t limit = 0)
    {
        std::unique_lock guard(m_mutex);
        m_reads.append(QString::fromStdString(path));
        m_changed.notify_all();
        while (m_held.count(path) || (limit == 0 && m_held.count(path + kRest))) {
            if (cancel && cancel->load()) {
                return FileContents::cancelled();
            }
            m_changed.wait_for(guard, std::chrono::milliseconds(5));
        }
        const auto it = m_files.find(path);
        if (it == m_files.end()) {
            return FileContents::failed("The file cannot be read: No such file or directory");
        }
        FileContents contents = it->second;
        if (limit != 0 && contents.text.size() > limit) {
            contents.text.resize(limit);
            contents.truncated = true;
        }
        return contents;
    }

    void put(const std::string& path, FileContents contents)
    {
        std::lock_guard guard(m_mutex);
        m_files[path] = std::move(contents);
    }
    void hold(const std::string& path)
    {
        std::lock_guard guard(m_mutex);
        m_held.insert(path);
    }
    // Holds the read of the whole text, not that of its start.
    void holdRest(const std::string& path) { hold(path + kRest); }
    void releaseRest(const std::string& path) { release(path + kRest); }
    void release(const std::string& path)
    {
        {
            std::lock_guard guard(m_mutex);
            m_held.erase(path);
        }
        m_changed.notify_all();
    }
    QStringList reads()
    {
        std::lock_guard guard(m_mutex);
        return m_reads;
    }

private:
    static constexpr const char* kRest = " (rest)";
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, FileContents> m_files;
    std::set<std::string> m_held;
    QStringList m_reads;
};

class TextPreviewTest : public ::testing::Test {
protected:
    TextPreviewTest()
        : preview(TextPreview::create(
              [this](const std::string& path, const std::atomic<bool>* cancel, std::uint64_t limit) {
                  return files.read(path, cancel, limit);
              }))
    {
        files.put("/a.txt", text("the harbour and the sea"));
        files.put("/b.txt", text("a quiet sea"));
        files.put("/c.txt", text("sea, sea and harbour"));
    }

    // Selects and waits for the answer.
    void select(const QStringList& paths)
    {
        preview->activeSelectionChanged(paths);
        ASSERT_TRUE(waitUntil([&] { return !preview->isLoading(); }));
    }
    void waitForColours(QSignalSpy& spy)
    {
        ASSERT_TRUE(waitUntil([&] { return spy.count() > 0; }));
    }

    ScriptedReader files;
    std::shared_ptr<TextPreview> preview;
};

TEST_F(TextPreviewTest, OneSelectedResultShowsItsTextWithTheQueryTermsColoured)
{
    preview->setQuerySearchStringArray({QStringLiteral("harbour"), QStringLiteral("sea")});
    EXPECT_EQ(preview->searchString(), QStringLiteral("harbour"));
    QSignalSpy current(preview.get(), &TextPreview::currentMatchChanged);
    select({QStringLiteral("/a.txt")});
    EXPECT_EQ(preview->path(), QStringLiteral("/a.txt"));
    EXPECT_EQ(preview->text(), QStringLiteral("the harbour and the sea"));
    EXPECT_TRUE(preview->isTextVisible());
    EXPECT_TRUE(preview->message().isEmpty());
    EXPECT_EQ(preview->matches(), (std::vector<TermMatch>{{4, 7, 0}, {20, 3, 1}}));
    // The first coloured range is brought into view.
    ASSERT_EQ(current.count(), 1);
    EXPECT_EQ(current.front().front().toInt(), 0);
    EXPECT_EQ(preview->displayLines(), std::vector<qsizetype>{0});

    files.put("/lines.txt", text("one\ntwo\n"));
    select({QStringLiteral("/lines.txt")});
    EXPECT_EQ(preview->displayLines(), (std::vector<qsizetype>{0, 4, 8}));
}

TEST_F(TextPreviewTest, SelectingTwoResultsEmptiesAndHidesThePreview)
{
    preview->setQuerySearchStringArray({QStringLiteral("sea")});
    select({QStringLiteral("/a.txt")});
    ASSERT_TRUE(preview->isTextVisible());
    select({QStringLiteral("/a.txt"), QStringLiteral("/b.txt")});
    EXPECT_FALSE(preview->isTextVisible());
    EXPECT_TRUE(preview->text().isEmpty());
    EXPECT_TRUE(preview->matches().empty());
    EXPECT_TRUE(preview->message().isEmpty());
    select({});
    EXPECT_FALSE(preview->isTextVisible());
}

TEST_F(TextPreviewTest, ChangingTheSelectionQuicklyShowsOnlyTheLastResult)
{
    QStringList shown;
    QObject::connect(preview.get(), &TextPreview::textChanged, [&] { shown.append(preview->path()); });
    files.hold("/a.txt");
    preview->activeSelectionChanged({QStringLiteral("/a.txt")});
    ASSERT_TRUE(waitUntil([&] { return files.reads().size() == 1; }));
    preview->activeSelectionChanged({QStringLiteral("/b.txt")});
    preview->activeSelectionChanged({QStringLiteral("/c.txt")});
    ASSERT_TRUE(waitUntil([&] { return !preview->isLoading(); }));
    EXPECT_EQ(preview->path(), QStringLiteral("/c.txt"));
    EXPECT_EQ(shown, QStringList{QStringLiteral("/c.txt")});
    // The read under way was given up; the one queued behind it never ran.
    EXPECT_EQ(files.reads(), (QStringList{QStringLiteral("/a.txt"), QStringLiteral("/c.txt")}));
}

TEST_F(TextPreviewTest, AFileThatFailsShowsWhyAndTheNextSelectionPreviewsNormally)
{
    select({QStringLiteral("/deleted.txt")});
    EXPECT_FALSE(preview->isTextVisible());
    EXPECT_EQ(preview->message(), QStringLiteral("The file cannot be read: No such file or directory"));
    select({QStringLiteral("/b.txt")});
    EXPECT_TRUE(preview->isTextVisible());
    EXPECT_TRUE(preview->message().isEmpty());
    EXPECT_EQ(preview->text(), QStringLiteral("a quiet sea"));
}

TEST_F(TextPreviewTest, FilesWithoutTextAndCutTextsSaySo)
{
    files.put("/image.png", FileContents{});
    select({QStringLiteral("/image.png")});
    EXPECT_FALSE(preview->isTextVisible());
    EXPECT_EQ(preview->message(), QStringLiteral("No text in this file."));

    FileContents cut = text(std::string(2000, 'x'));
    cut.truncated = true;
    files.put("/big.txt", cut);
    select({QStringLiteral("/big.txt")});
    EXPECT_TRUE(preview->isTextVisible());
    EXPECT_TRUE(preview->isTruncated());
    EXPECT_EQ(preview->message(), QStringLiteral("Only the first 2 kB of the text are shown."));
}

TEST_F(TextPreviewTest, TheSearchFieldColoursWhatIsTypedInsteadOfTheQueryTerms)
{
    preview->setQuerySearchStringArray({QStringLiteral("harbour"), QStringLiteral("and")});
    select({QStringLiteral("/c.txt")});
    EXPECT_EQ(preview->matches().size(), 2u);

    QSignalSpy coloured(preview.get(), &TextPreview::highlightsChanged);
    preview->setSearchString(QStringLiteral("SEA"));
    waitForColours(coloured);
    EXPECT_EQ(preview->terms(), QStringList{QStringLiteral("SEA")});
    EXPECT_EQ(preview->matches(), (std::vector<TermMatch>{{0, 3, 0}, {5, 3, 0}}));

    // Back to the first query term: the query's terms again.
    coloured.clear();
    preview->setSearchString(QStringLiteral("harbour"));
    waitForColours(coloured);
    EXPECT_EQ(preview->matches(), (std::vector<TermMatch>{{9, 3, 1}, {13, 7, 0}}));

    // New query terms replace what was typed.
    preview->setSearchString(QStringLiteral("quiet"));
    coloured.clear();
    preview->setQuerySearchStringArray({QStringLiteral("sea")});
    waitForColours(coloured);
    EXPECT_EQ(preview->searchString(), QStringLiteral("sea"));
    EXPECT_EQ(preview->matches().size(), 2u);
}

TEST_F(TextPreviewTest, WithoutQueryTermsTheSearchFieldAloneIsColoured)
{
    select({QStringLiteral("/a.txt")});
    EXPECT_TRUE(preview->matches().empty());
    EXPECT_EQ(preview->currentMatch(), -1);
    QSignalSpy coloured(preview.get(), &TextPreview::highlightsChanged);
    preview->setSearchString(QStringLiteral("the"));
    waitForColours(coloured);
    EXPECT_EQ(preview->matches(), (std::vector<TermMatch>{{0, 3, 0}, {16, 3, 0}}));
    coloured.clear();
    preview->setSearchString({});
    waitForColours(coloured);
    EXPECT_TRUE(preview->matches().empty());
}

TEST_F(TextPreviewTest, TermsThatChangeWhileTheFileIsReadAreTheOnesColoured)
{
    preview->setQuerySearchStringArray({QStringLiteral("harbour")});
    files.hold("/a.txt");
    preview->activeSelectionChanged({QStringLiteral("/a.txt")});
    ASSERT_TRUE(waitUntil([&] { return files.reads().size() == 1; }));
    preview->setQuerySearchStringArray({QStringLiteral("sea")});
    QSignalSpy coloured(preview.get(), &TextPreview::highlightsChanged);
    files.release("/a.txt");
    ASSERT_TRUE(waitUntil([&] {
        return !preview->isLoading() && preview->matches() == std::vector<TermMatch>{{20, 3, 0}};
    }));
}

TEST_F(TextPreviewTest, NextAndPreviousMatchGoRoundTheText)
{
    preview->setQuerySearchStringArray({QStringLiteral("sea")});
    select({QStringLiteral("/c.txt")});
    ASSERT_EQ(preview->matches().size(), 2u);
    QSignalSpy current(preview.get(), &TextPreview::currentMatchChanged);
    preview->goToNextMatch();
    preview->goToNextMatch();
    preview->goToPreviousMatch();
    ASSERT_EQ(current.count(), 3);
    EXPECT_EQ(current[0].front().toInt(), 1);
    EXPECT_EQ(current[1].front().toInt(), 0);
    EXPECT_EQ(current[2].front().toInt(), 1);
    EXPECT_EQ(preview->currentMatch(), 1);
}

TEST_F(TextPreviewTest, AHiddenPreviewReadsNothingUntilItIsShown)
{
    preview->setActive(false);
    preview->activeSelectionChanged({QStringLiteral("/a.txt")});
    QCoreApplication::processEvents();
    EXPECT_TRUE(files.reads().isEmpty());
    preview->setActive(true);
    ASSERT_TRUE(waitUntil([&] { return preview->path() == QStringLiteral("/a.txt"); }));
}

TEST_F(TextPreviewTest, ALargeTextShowsItsStartAtOnceThenTheWholeTextWhereTheUserIs)
{
    files.put("/long.txt", text("a sea, a sea, and one more sea"));
    files.holdRest("/long.txt");
    preview->setFirstLookBytes(14);
    preview->setQuerySearchStringArray({QStringLiteral("sea")});
    QSignalSpy changed(preview.get(), &TextPreview::textChanged);
    QSignalSpy extended(preview.get(), &TextPreview::textExtended);
    QSignalSpy current(preview.get(), &TextPreview::currentMatchChanged);
    preview->activeSelectionChanged({QStringLiteral("/long.txt")});
    ASSERT_TRUE(waitUntil([&] { return preview->isTextVisible(); }));
    EXPECT_EQ(preview->text(), QStringLiteral("a sea, a sea, "));
    EXPECT_EQ(preview->matches(), (std::vector<TermMatch>{{2, 3, 0}, {9, 3, 0}}));
    EXPECT_TRUE(preview->isLoading());
    EXPECT_FALSE(preview->isTruncated()) << "the rest is on its way, not missing";
    preview->goToNextMatch();
    ASSERT_EQ(preview->currentMatch(), 1);
    const int moves = static_cast<int>(current.count());

    files.releaseRest("/long.txt");
    ASSERT_TRUE(waitUntil([&] { return !preview->isLoading(); }));
    EXPECT_EQ(preview->text(), QStringLiteral("a sea, a sea, and one more sea"));
    EXPECT_EQ(preview->matches(), (std::vector<TermMatch>{{2, 3, 0}, {9, 3, 0}, {27, 3, 0}}));
    EXPECT_EQ(preview->displayLines(), std::vector<qsizetype>{0});
    EXPECT_TRUE(preview->message().isEmpty());
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(extended.count(), 1);
    // The user stays at the match they went to.
    EXPECT_EQ(preview->currentMatch(), 1);
    EXPECT_EQ(current.count(), moves);
}

TEST_F(TextPreviewTest, MovingOnBeforeTheRestOfATextArrivesDropsTheRest)
{
    files.put("/long.txt", text("a sea, a sea, and one more sea"));
    files.holdRest("/long.txt");
    preview->setFirstLookBytes(14);
    QStringList extended;
    QObject::connect(preview.get(), &TextPreview::textExtended, [&] { extended.append(preview->path()); });
    preview->activeSelectionChanged({QStringLiteral("/long.txt")});
    ASSERT_TRUE(waitUntil([&] { return files.reads().size() == 2; }));  // the rest is being read
    select({QStringLiteral("/b.txt")});
    files.releaseRest("/long.txt");
    preview->activeSelectionChanged({QStringLiteral("/c.txt")});
    ASSERT_TRUE(waitUntil([&] { return !preview->isLoading(); }));
    EXPECT_EQ(preview->text(), QStringLiteral("sea, sea and harbour"));
    // c.txt is longer than the first look too: its own rest came, not long.txt's.
    EXPECT_EQ(extended, QStringList{QStringLiteral("/c.txt")});
    EXPECT_EQ(files.reads(), (QStringList{QStringLiteral("/long.txt"), QStringLiteral("/long.txt"),
                                          QStringLiteral("/b.txt"), QStringLiteral("/c.txt"), QStringLiteral("/c.txt")}));
}

TEST_F(TextPreviewTest, WhenTheRestCannotBeReadTheStartStaysWithANote)
{
    files.put("/long.txt", text("a sea, a sea, and one more sea"));
    files.holdRest("/long.txt");
    preview->setFirstLookBytes(14);
    preview->activeSelectionChanged({QStringLiteral("/long.txt")});
    ASSERT_TRUE(waitUntil([&] { return files.reads().size() == 2; }));
    files.put("/long.txt", FileContents::failed("The file cannot be read: No such file or directory"));
    files.releaseRest("/long.txt");
    ASSERT_TRUE(waitUntil([&] { return !preview->isLoading(); }));
    EXPECT_EQ(preview->text(), QStringLiteral("a sea, a sea, "));
    EXPECT_TRUE(preview->isTextVisible());
    EXPECT_TRUE(preview->isTruncated());
    EXPECT_EQ(preview->message(), QStringLiteral("Only the first 14 bytes of the text are shown."));
}

}  // namespace
}  // namespace trovara::preview
