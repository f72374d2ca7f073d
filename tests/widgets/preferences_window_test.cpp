// The preferences window, offscreen: every control reached by Tab and
// named, the controls showing and writing the user defaults, the shortcut
// recorders storing their dictionaries and refusing taken combinations,
// the helper switches and the template button.
#include "widgets/preferences_window.h"
#include "widgets/shortcut_recorder.h"

#include "app/file_manager_actions.h"
#include "common/error_presenter.h"
#include "focus_walk.h"
#include "model/defaults.h"
#include "test_support.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

using widgets::PreferencesController;
using widgets::ShortcutRecorder;

class CountingHelperSwitch final : public app::HelperSwitch {
public:
    void setUpHelper(bool quitIfUnused) override { calls.push_back(quitIfUnused); }
    std::vector<bool> calls;
};

class PreferencesWindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        settingsFile = QDir::homePath() + QStringLiteral("/preferences-test.conf");
        QFile::remove(settingsFile);
        model::Defaults::resetSharedForTesting(settingsFile);
        delegate.setHelperSwitch(&helper);
    }
    void TearDown() override
    {
        window.reset();
        model::Defaults::resetSharedForTesting();
        QDir(app::ApplicationDelegate::applicationSupportFolder()).removeRecursively();
    }

    PreferencesController& open()
    {
        window = std::make_unique<PreferencesController>(delegate);
        app::SystemShortcuts taken;
        taken.add({0x11, app::kCommandKeyMask | app::kOptionKeyMask});  // Ctrl+Alt+T
        window->setSystemShortcuts(taken);
        window->setRefusalPresenter([this](const QString& message) { refusals << message; });
        window->show();
        window->activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(window.get()));
        return *window;
    }

    static QVariantMap stored(const char* key) { return model::Defaults::shared().value(QLatin1String(key)).toMap(); }
    static QVariantMap dictionary(int keyCode, int modifiers)
    {
        return {{QStringLiteral("keyCode"), keyCode}, {QStringLiteral("modifiers"), modifiers}};
    }

    QString settingsFile;
    index::NoIndexSource noIndex;
    app::ApplicationDelegate delegate{noIndex};
    CountingHelperSwitch helper;
    std::unique_ptr<PreferencesController> window;
    QStringList refusals;
};

TEST_F(PreferencesWindowTest, TabReachesEveryEnabledControlAndEachHasAName)
{
    PreferencesController& preferences = open();
    preferences.quickSearchRecorder()->setFocus();
    const FocusWalk walk = walkFocus(&preferences);
    EXPECT_FALSE(walk.endless);
    EXPECT_TRUE(walk.unnamed.isEmpty()) << walk.unnamed.join(", ").toStdString();
    EXPECT_TRUE(walk.unreached.isEmpty()) << walk.unreached.join(", ").toStdString();
    // Eight switches, the colour, three recorders with their Clear
    // buttons, the template button and Close.
    EXPECT_GE(walk.forward.size(), 16u);
    EXPECT_EQ(walk.forward.size(), walk.backward.size() + 1);
    // Without an indexer on the desktop there is no switch for it.
    EXPECT_FALSE(preferences.systemSearchButton()->isVisibleTo(&preferences));
    EXPECT_FALSE(preferences.fileManagerItemButton()->accessibleName().isEmpty());
}

TEST_F(PreferencesWindowTest, TheFileManagerButtonInstallsSearchInTrovaraForThisUser)
{
    PreferencesController& preferences = open();
    QPushButton* button = preferences.fileManagerItemButton();
    ASSERT_TRUE(button->isEnabled());
    button->click();
    auto* status = preferences.findChild<QLabel*>(QStringLiteral("fileManagerStatus"));
    ASSERT_NE(status, nullptr);
    EXPECT_TRUE(status->text().startsWith(QStringLiteral("Added"))) << status->text().toStdString();
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    EXPECT_TRUE(QFileInfo::exists(dataHome + QStringLiteral("/nemo/actions/")
                                  + QLatin1String(app::FileManagerActions::kNemoAction)));
}

TEST_F(PreferencesWindowTest, ControlsShowTheStoredValues)
{
    model::Defaults& defaults = model::Defaults::shared();
    defaults.setValue(QStringLiteral("includeInvisibleFiles"), true);
    defaults.setValue(QStringLiteral("showIconsInResults"), false);
    defaults.setValue(QStringLiteral("accentColorNumber"), 3);
    defaults.setValue(QStringLiteral("blitzSearchHotKey"), dictionary(0x01, 256 | 2048));
    PreferencesController& preferences = open();

    EXPECT_TRUE(preferences.checkBoxForKey(QStringLiteral("includeInvisibleFiles"))->isChecked());
    EXPECT_FALSE(preferences.checkBoxForKey(QStringLiteral("showIconsInResults"))->isChecked());
    EXPECT_TRUE(preferences.checkBoxForKey(QStringLiteral("enableGlobalHotKeys"))->isChecked());
    EXPECT_FALSE(preferences.checkBoxForKey(QStringLiteral("quitOnCloseOfLastWindow"))->isChecked());
    EXPECT_EQ(preferences.accentColorChooser()->currentIndex(), 3);
    EXPECT_EQ(preferences.quickSearchRecorder()->text(), QStringLiteral("Ctrl+Alt+S"));
    // The registered defaults, as the recorder's modifiers.
    EXPECT_EQ(preferences.bringToFrontRecorder()->text(), QStringLiteral("Ctrl+Meta+Right"));
    EXPECT_EQ(preferences.bringToFrontAndCreateRecorder()->text(), QStringLiteral("Ctrl+Alt+Meta+Right"));
}

TEST_F(PreferencesWindowTest, RecordingStoresTheDictionaryInTheStoredForm)
{
    PreferencesController& preferences = open();
    ShortcutRecorder* recorder = preferences.quickSearchRecorder();
    recorder->setFocus();
    QTest::keyClick(recorder, Qt::Key_F, Qt::ControlModifier | Qt::MetaModifier);
    EXPECT_EQ(stored("blitzSearchHotKey"), dictionary(0x03, 256 | 4096));
    EXPECT_EQ(recorder->text(), QStringLiteral("Ctrl+Meta+F"));

    // A plain letter, or a modifier alone, records nothing.
    QTest::keyClick(recorder, Qt::Key_G);
    QTest::keyClick(recorder, Qt::Key_Control, Qt::ControlModifier);
    EXPECT_EQ(stored("blitzSearchHotKey"), dictionary(0x03, 256 | 4096));
    // A function key may stand alone.
    QTest::keyClick(recorder, Qt::Key_F9);
    EXPECT_EQ(stored("blitzSearchHotKey"), dictionary(0x65, 0));

    // Backspace clears: key code -1, so a registered default is off too.
    preferences.bringToFrontRecorder()->setFocus();
    QTest::keyClick(preferences.bringToFrontRecorder(), Qt::Key_Backspace);
    EXPECT_EQ(stored("bringToFrontHotKey"), dictionary(-1, 0));
    EXPECT_TRUE(preferences.bringToFrontRecorder()->text().isEmpty());
    EXPECT_TRUE(refusals.isEmpty());
}

TEST_F(PreferencesWindowTest, CombinationsTheDesktopOrAnotherShortcutUsesAreRefused)
{
    PreferencesController& preferences = open();
    ShortcutRecorder* recorder = preferences.quickSearchRecorder();
    recorder->setFocus();
    QTest::keyClick(recorder, Qt::Key_T, Qt::ControlModifier | Qt::AltModifier);
    ASSERT_EQ(refusals.size(), 1);
    EXPECT_EQ(refusals[0], QStringLiteral("The key combination \"Ctrl+Alt+T\" can't be used because it's already "
                                          "used by a system-wide keyboard shortcut. (If you really want to use this "
                                          "key combination, most shortcuts can be changed in the Keyboard & Mouse "
                                          "panel in System Preferences.)"));
    EXPECT_FALSE(model::Defaults::shared().hasUserValue(QStringLiteral("blitzSearchHotKey")));

    // The bring-to-front shortcut's keys are taken by Trovara itself.
    QTest::keyClick(recorder, Qt::Key_Right, Qt::ControlModifier | Qt::MetaModifier);
    ASSERT_EQ(refusals.size(), 2);
    EXPECT_TRUE(refusals[1].contains(QStringLiteral("bring to front shortcut"))) << refusals[1].toStdString();
    EXPECT_FALSE(model::Defaults::shared().hasUserValue(QStringLiteral("blitzSearchHotKey")));
    EXPECT_TRUE(recorder->text().isEmpty());
}

TEST_F(PreferencesWindowTest, HelperSwitchesSaveAndSetUpTheHelperOthersOnlySave)
{
    PreferencesController& preferences = open();
    preferences.checkBoxForKey(QStringLiteral("enableGlobalMenuItem"))->click();
    EXPECT_FALSE(model::Defaults::shared().boolValue(QStringLiteral("enableGlobalMenuItem")));
    EXPECT_EQ(helper.calls, std::vector<bool>{true});
    // Saved at once: another process reads it from the file.
    EXPECT_EQ(QSettings(settingsFile, QSettings::IniFormat).value(QStringLiteral("enableGlobalMenuItem")).toBool(),
              false);

    preferences.checkBoxForKey(QStringLiteral("quitOnCloseOfLastWindow"))->click();
    EXPECT_TRUE(model::Defaults::shared().boolValue(QStringLiteral("quitOnCloseOfLastWindow")));
    EXPECT_EQ(helper.calls.size(), 1u);

    preferences.accentColorChooser()->setFocus();
    QTest::keyClick(preferences.accentColorChooser(), Qt::Key_Down);
    EXPECT_EQ(model::Defaults::shared().intValue(QStringLiteral("accentColorNumber")), 1);
}

TEST_F(PreferencesWindowTest, TemplateButtonInstallsTheDefaultTemplatesWhateverTheVersion)
{
    const QString shipped = makeTemporaryFolder(QStringLiteral("shipped"));
    QFile file(shipped + QStringLiteral("/Images.trova"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("images");
    file.close();
    delegate.setDefaultTemplatesFolderForTesting(shipped);
    QDir().mkpath(app::ApplicationDelegate::templateFolder());
    model::Defaults::shared().setValue(QStringLiteral("templateVersion"), 10);

    PreferencesController& preferences = open();
    preferences.installTemplatesButton()->click();
    EXPECT_TRUE(QFileInfo::exists(app::ApplicationDelegate::templateFolder() + QStringLiteral("/Images.trova")));
    QDir(shipped).removeRecursively();
}

TEST_F(PreferencesWindowTest, IndexerButtonSwitchesTheDesktopsIndexerAndShowsItsFailure)
{
    // GNOME's indexer, on; every command answered here and none run.
    const QString read = QStringLiteral("/usr/bin/gsettings get org.freedesktop.Tracker3.Miner.Files crawling-interval");
    QString interval = QStringLiteral("-1");
    int failingExit = 0;
    QStringList ran;
    const app::CommandRunner runner = [&](const QString& program, const QStringList& arguments) {
        const QString command = (QStringList{program} + arguments).join(QLatin1Char(' '));
        ran << command;
        if (command == read) {
            return app::CommandOutput{true, 0, interval};
        }
        if (command.contains(QLatin1String("crawling-interval -2"))) {
            interval = QStringLiteral("-2");
        }
        return app::CommandOutput{true, failingExit, {}};
    };
    const app::ProgramFinder finder = [](const QString& name) {
        return name == QLatin1String("tracker3") || name == QLatin1String("gsettings") ? QStringLiteral("/usr/bin/") + name
                                                                                       : QString();
    };
    std::vector<Error> presented;
    const ErrorPresenter previous = setErrorPresenter([&](const Error& error) { presented.push_back(error); });

    PreferencesController& preferences = open();
    preferences.setIndexerSwitch(app::SpotlightService::forDesktop(runner, finder));
    QPushButton* button = preferences.systemSearchButton();
    ASSERT_TRUE(button->isVisibleTo(&preferences));
    EXPECT_EQ(button->text(), QStringLiteral("Disable standard LocalSearch file indexer"));
    EXPECT_EQ(button->accessibleName(), button->text());
    button->click();
    EXPECT_TRUE(ran.contains(QStringLiteral("/usr/bin/tracker3 daemon -t")));
    EXPECT_EQ(button->text(), QStringLiteral("Enable standard LocalSearch file indexer"));
    EXPECT_TRUE(presented.empty());

    failingExit = 1;
    button->click();
    ASSERT_EQ(presented.size(), 1u);
    EXPECT_EQ(presented[0].description, QStringLiteral("Failed to modify LocalSearch file indexer configuration"));
    EXPECT_EQ(button->text(), QStringLiteral("Enable standard LocalSearch file indexer"));

    preferences.setIndexerSwitch(nullptr);
    EXPECT_FALSE(button->isVisibleTo(&preferences));
    setErrorPresenter(previous);
}

}  // namespace
}  // namespace trovara::test
