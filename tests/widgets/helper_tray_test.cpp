// The helper's tray menu, offscreen and without a session bus: its
// commands, the hot-key help that appears only when the desktop did not
// take the hot keys, and the commands starting Trovara when it is not
// reachable.
#include "widgets/helper_tray.h"

#include "helper/helper_controller.h"
#include "model/defaults.h"

#include <QAction>
#include <QDBusConnection>
#include <QDir>
#include <QMenu>
#include <QSignalSpy>
#include <QSystemTrayIcon>

#include <gtest/gtest.h>

namespace trovara::test {
namespace {

class HelperTrayTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/helper-tray-test.conf"));
        model::Defaults::shared().registerDefaults(model::Defaults::factoryDefaults());
        helper::HelperController::Environment environment;
        environment.selection = [this] { return selection; };
        environment.startTrovara = [this](const QStringList& arguments) {
            started << arguments.join(QLatin1Char(' '));
            return true;
        };
        // A bus that is not there: nothing reaches a desktop.
        controller = std::make_unique<helper::HelperController>(
            QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"), QStringLiteral("no-bus")),
            environment);
        tray = std::make_unique<widgets::HelperTray>(*controller);
    }
    void TearDown() override
    {
        tray.reset();
        controller.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("no-bus"));
        model::Defaults::resetSharedForTesting();
    }
    QStringList visibleTexts() const
    {
        QStringList texts;
        for (QAction* action : tray->menu()->actions()) {
            if (action->isVisible() && !action->isSeparator()) {
                texts << action->text();
            }
        }
        return texts;
    }
    QAction* action(const QString& text) const
    {
        for (QAction* action : tray->menu()->actions()) {
            if (action->text() == text) {
                return action;
            }
        }
        return nullptr;
    }

    QString selection;
    QStringList started;
    std::unique_ptr<helper::HelperController> controller;
    std::unique_ptr<widgets::HelperTray> tray;
};

TEST_F(HelperTrayTest, MenuOffersTheGlobalCommandsAndHotKeyHelpOnlyWhenNeeded)
{
    const QStringList commands{QStringLiteral("New Search"), QStringLiteral("Search for the Selection"),
                               QStringLiteral("Bring Trovara to Front"), QStringLiteral("Preferences…"),
                               QStringLiteral("Quit Trovara Helper")};
    EXPECT_EQ(visibleTexts(), commands);
    EXPECT_FALSE(tray->menu()->accessibleName().isEmpty());

    // Without a bus there is no portal: the help with the commands to bind
    // joins the menu.
    controller->reload();
    EXPECT_TRUE(controller->hotKeysMessage().contains(QLatin1String("trovara --activate-new")));
    EXPECT_TRUE(tray->hotKeysAction()->isVisible());
    EXPECT_TRUE(tray->icon()->isVisible());

    // Hot keys off: nothing to explain; menu item off: no icon.
    model::Defaults::shared().setValue(QStringLiteral("enableGlobalHotKeys"), false);
    controller->reload();
    EXPECT_FALSE(tray->hotKeysAction()->isVisible());
    EXPECT_EQ(visibleTexts(), commands);
    model::Defaults::shared().setValue(QStringLiteral("enableGlobalHotKeys"), true);
    model::Defaults::shared().setValue(QStringLiteral("enableGlobalMenuItem"), false);
    controller->reload();
    EXPECT_FALSE(tray->icon()->isVisible());
}

TEST_F(HelperTrayTest, CommandsStartTrovaraWhenItCannotBeReached)
{
    QSignalSpy beeps(controller.get(), &helper::HelperController::beepRequested);
    QSignalSpy quit(controller.get(), &helper::HelperController::quitRequested);
    action(QStringLiteral("New Search"))->trigger();
    action(QStringLiteral("Bring Trovara to Front"))->trigger();
    action(QStringLiteral("Preferences…"))->trigger();
    action(QStringLiteral("Search for the Selection"))->trigger();
    EXPECT_EQ(beeps.count(), 1);  // nothing selected
    selection = QStringLiteral("harbour");
    action(QStringLiteral("Search for the Selection"))->trigger();
    EXPECT_EQ(started, (QStringList{QStringLiteral("--activate-new"), QStringLiteral("--activate"),
                                    QStringLiteral("--preferences"), QStringLiteral("--quick-search")}));
    action(QStringLiteral("Quit Trovara Helper"))->trigger();
    EXPECT_EQ(quit.count(), 1);
}

}  // namespace
}  // namespace trovara::test
