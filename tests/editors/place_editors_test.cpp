// The editors of the places to search, the places to leave out and the
// limit, over a real document: their lines, choices, folder drops and
// choosers, and every edit reaching the query's inputs and undo.
#include "editors_test_support.h"

#include "common/paths.h"
#include "model/ordered_column_attribute.h"
#include "model/platform.h"
#include "model/scope.h"

#include <QFile>

namespace trovara::test {
namespace {

using editors::FolderRequest;

class PlaceEditorsTest : public EditorsTest {
protected:
    void SetUp() override
    {
        EditorsTest::SetUp();
        folder = makeTemporaryFolder(QStringLiteral("places"));
        for (const char* name : {"a", "b", "c"}) {
            QDir(folder).mkdir(QString::fromLatin1(name));
        }
        file = folder + QStringLiteral("/a/notes.txt");
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    }

    QString at(const char* name) const { return folder + QLatin1Char('/') + QString::fromLatin1(name); }

    QStringList searchScopes() const { return document->metadataQueryController()->searchScopes(); }
    QStringList excludedPaths() const { return document->metadataQueryController()->excludedPaths(); }

    static QStringList labels(editors::RuleEditorModel& editor)
    {
        QStringList shown;
        for (int row = 0; row < editor.numberOfRows(); ++row) {
            shown << editor.rowAtIndex(row)->displayValues.front().text;
        }
        return shown;
    }

    const QString home = QString::fromLatin1(model::platform::kUserHomeScope);
    QString folder;
    QString file;
};

TEST_F(PlaceEditorsTest, ThePlacesToSearchShowTheirLabelsAndNeverBecomeEmpty)
{
    editors::RuleEditorModel& scopes = editors->scopeEditor();
    EXPECT_EQ(labels(scopes), QStringList{QStringLiteral(" - User home folder")});
    EXPECT_EQ(scopes.rowHeight(), 25);
    // The preferred places, named ones first, then "Other...".
    const QStringList choices = scopes.choiceTitlesAt(0, 0);
    ASSERT_EQ(choices.size(), 7 + 2) << choices.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(choices.mid(0, 3), (QStringList{" - Local volumes + user home", " - User home folder",
                                              " - User-mounted remote volumes"}));
    EXPECT_TRUE(choices.contains(QStringLiteral("~/Documents/")));
    EXPECT_EQ(choices.back(), QStringLiteral("Other..."));
    EXPECT_TRUE(choices.at(choices.size() - 2).isEmpty());
    EXPECT_FALSE(scopes.canRemoveRow(0));
    EXPECT_TRUE(editors->exclusionEditor().canRemoveAllRows());
    EXPECT_EQ(editors->exclusionEditor().numberOfRows(), 0);
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, AFileDroppedOnThePlacesAddsItsFolder)
{
    editors::RuleEditorModel& scopes = editors->scopeEditor();
    ASSERT_TRUE(scopes.dropFiles({file}, 30));
    EXPECT_EQ(scopes.numberOfRows(), 2);
    EXPECT_EQ(searchScopes(), (QStringList{home, at("a")}));
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, ThreeFoldersDroppedOnALineReplaceItsPlaceWithTheFirstAndAddTheOthers)
{
    editors::RuleEditorModel& scopes = editors->scopeEditor();
    ASSERT_TRUE(scopes.dropFiles({at("a"), at("b"), at("c")}, 3));
    EXPECT_EQ(searchScopes(), (QStringList{at("a"), at("b"), at("c")}));
    // Only the first name is checked: the others are taken as they stand.
    ASSERT_TRUE(scopes.dropFiles({at("a"), at("nowhere")}, 26));
    EXPECT_EQ(searchScopes(), (QStringList{at("a"), at("a"), at("c"), at("nowhere")}));
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, ADropWhoseFirstFileVanishedIsRefused)
{
    settle();
    EXPECT_FALSE(editors->scopeEditor().dropFiles({at("gone"), at("b")}, 3));
    EXPECT_FALSE(editors->exclusionEditor().dropFiles({}, 3));
    settle();
    EXPECT_FALSE(context().hasChanges());
    EXPECT_EQ(searchScopes(), QStringList{home});
}

TEST_F(PlaceEditorsTest, ThePlacesToLeaveOutMayBecomeEmpty)
{
    editors::RuleEditorModel& exclusions = editors->exclusionEditor();
    ASSERT_TRUE(exclusions.dropFiles({at("b"), at("c")}, 0));
    EXPECT_EQ(excludedPaths(), (QStringList{at("b"), at("c")}));
    // The pop-up offers folders only.
    for (const editors::Criterion& choice : exclusions.choicesAt(0, 0)) {
        if (const auto* scope = choice.object<model::Scope>()) {
            EXPECT_FALSE(scope->isConstant()) << scope->path().toStdString();
        }
    }
    ASSERT_TRUE(exclusions.moveRow(1, -1, 0));
    EXPECT_EQ(excludedPaths(), (QStringList{at("c"), at("b")}));
    ASSERT_TRUE(exclusions.removeRow(0));
    ASSERT_TRUE(exclusions.removeRow(0));
    EXPECT_TRUE(excludedPaths().isEmpty());
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, TheDropButtonSkipsVanishedFilesAndTakesAFilesFolder)
{
    editors::ExclusionEditorDelegate& delegate = editors->exclusionEditorDelegate();
    EXPECT_FALSE(delegate.dropButtonAcceptDrop({at("gone")}));
    ASSERT_TRUE(delegate.dropButtonAcceptDrop({at("gone"), file, at("c")}));
    EXPECT_EQ(excludedPaths(), (QStringList{at("a"), at("c")}));
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, OtherAsksAFolderChooserForTheLineOrForANewLine)
{
    std::vector<FolderRequest> requests;
    std::function<void(const QString&)> answer;
    editors->setFolderChooser([&](const FolderRequest& request, std::function<void(const QString&)> done) {
        requests.push_back(request);
        answer = std::move(done);
    });
    editors::RuleEditorModel& scopes = editors->scopeEditor();
    auto other = [&] { return static_cast<int>(scopes.choicesAt(0, 0).size()) - 1; };
    EXPECT_FALSE(scopes.chooseCriterion(0, 0, other()));
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].startPath, QDir::homePath());
    EXPECT_EQ(requests[0].prompt, QStringLiteral("Select"));
    EXPECT_EQ(requests[0].message, QStringLiteral("Select folder"));
    answer(QString());  // cancelled
    EXPECT_EQ(searchScopes(), QStringList{home});
    scopes.chooseCriterion(0, 0, other());
    answer(at("b"));
    EXPECT_EQ(searchScopes(), QStringList{at("b")});
    // The chooser starts where the line's folder is.
    scopes.chooseCriterion(0, 0, other());
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests.back().startPath, expandTilde(abbreviateWithTilde(at("b"))));

    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, ANewPlaceToLeaveOutIsTheFirstFolderKnownElseTheChoosersAnswer)
{
    std::function<void(const QString&)> answer;
    editors->setFolderChooser([&](const FolderRequest&, std::function<void(const QString&)> done) { answer = done; });
    editors::RuleEditorModel& exclusions = editors->exclusionEditor();
    ASSERT_EQ(exclusions.addRow(-1), 0);
    EXPECT_EQ(excludedPaths(), QStringList{QStringLiteral("/")});
    ASSERT_TRUE(exclusions.removeRow(0));

    // A document that knows no folders.
    document->updateScope([&] {
        for (model::Scope* scope : model::Scope::nonConstantScopesInContext(context())) {
            context().deleteObject(scope);
        }
    });
    EXPECT_EQ(exclusions.addRow(-1), -1);
    ASSERT_TRUE(answer);
    answer(at("c"));
    EXPECT_EQ(excludedPaths(), QStringList{at("c")});
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, ChoosingAnotherPlaceOrOrderReachesTheQuery)
{
    editors::RuleEditorModel& scopes = editors->scopeEditor();
    ASSERT_TRUE(scopes.dropFiles({at("a"), at("b")}, 30));
    ASSERT_TRUE(choose(scopes, 0, 0, abbreviateWithTilde(at("b"))));
    EXPECT_EQ(searchScopes(), (QStringList{at("b"), at("a"), at("b")}));
    ASSERT_TRUE(scopes.moveRow(2, -1, 0));
    ASSERT_TRUE(scopes.removeRow(1));
    EXPECT_EQ(searchScopes(), (QStringList{at("b"), at("a")}));
    EXPECT_TRUE(consistent());
}

TEST_F(PlaceEditorsTest, UndoAndRedoReachBothListsOfPlaces)
{
    settle();
    ASSERT_TRUE(editors->scopeEditor().dropFiles({at("a")}, 30));
    settle();
    ASSERT_TRUE(editors->exclusionEditor().dropFiles({at("b")}, 0));
    settle();
    context().undo();
    settle();
    EXPECT_EQ(editors->exclusionEditor().numberOfRows(), 0);
    EXPECT_TRUE(excludedPaths().isEmpty());
    context().undo();
    settle();
    EXPECT_EQ(editors->scopeEditor().numberOfRows(), 1);
    EXPECT_EQ(searchScopes(), QStringList{home});
    context().redo();
    context().redo();
    settle();
    EXPECT_EQ(excludedPaths(), QStringList{at("b")});
    EXPECT_EQ(searchScopes(), (QStringList{home, at("a")}));
    EXPECT_TRUE(consistent());
}

class LimitEditorTest : public EditorsTest {
protected:
    editors::RuleEditorModel& limit() { return editors->limitEditor(); }
    QStringList shown()
    {
        QStringList texts;
        for (const editors::DisplayValue& value : limit().rowAtIndex(0)->displayValues) {
            texts << value.text;
        }
        return texts;
    }
    query::MetadataQueryController& controller() { return *document->metadataQueryController(); }
};

TEST_F(LimitEditorTest, TheLimitIsOneLineOfNumberDirectionAndAttribute)
{
    ASSERT_EQ(limit().numberOfRows(), 1);
    EXPECT_EQ(shown(), (QStringList{"1000", "Most", "recently used"}));
    EXPECT_EQ(limit().choiceTitlesAt(0, 0),
              (QStringList{"All", "10", "20", "50", "100", "300", "500", "1000", "2000", "3000", "5000"}));
    EXPECT_EQ(limit().choiceTitlesAt(0, 1), (QStringList{"Least", "Most"}));
    EXPECT_EQ(limit().choiceTitlesAt(0, 2).size(), 3);
    EXPECT_EQ(limit().addRow(0), -1);
    EXPECT_FALSE(limit().removeRow(0));
    EXPECT_FALSE(limit().dropFiles({QDir::homePath()}, 1));
    EXPECT_TRUE(consistent());
}

TEST_F(LimitEditorTest, AChangeKeepsTheUsersOtherChoices)
{
    ASSERT_TRUE(choose(limit(), 0, 2, QStringLiteral("recently modified")));
    ASSERT_TRUE(choose(limit(), 0, 1, QStringLiteral("Least")));
    EXPECT_EQ(shown(), (QStringList{"1000", "Least", "recently modified"}));
    ASSERT_TRUE(choose(limit(), 0, 0, QStringLiteral("All")));
    EXPECT_EQ(shown(), (QStringList{"All", "Least", "recently modified"}));
    ASSERT_TRUE(choose(limit(), 0, 0, QStringLiteral("100")));
    EXPECT_EQ(shown(), (QStringList{"100", "Least", "recently modified"}));
    EXPECT_EQ(controller().limitValue(), 100);
    EXPECT_TRUE(controller().limitAscending());
    EXPECT_EQ(controller().limitKey(), QStringLiteral("kMDItemContentModificationDate"));
    ASSERT_TRUE(choose(limit(), 0, 1, QStringLiteral("Most")));
    EXPECT_EQ(shown(), (QStringList{"100", "Most", "recently modified"}));
    EXPECT_FALSE(controller().limitAscending());
    EXPECT_TRUE(consistent());
}

TEST_F(LimitEditorTest, UndoReloadsTheLimit)
{
    settle();
    ASSERT_TRUE(choose(limit(), 0, 0, QStringLiteral("20")));
    settle();
    context().undo();
    settle();
    EXPECT_EQ(shown().front(), QStringLiteral("1000"));
    EXPECT_EQ(controller().limitValue(), 1000);
    context().redo();
    settle();
    EXPECT_EQ(shown().front(), QStringLiteral("20"));
    EXPECT_TRUE(consistent());
}

}  // namespace
}  // namespace trovara::test
