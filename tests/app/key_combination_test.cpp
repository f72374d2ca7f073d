// Stored shortcuts: the virtual key code table, the modifier flags, the
// readable text, the desktops' shortcut texts and the combinations the
// desktop keeps for itself.
#include "app/key_combination.h"
#include "app/system_shortcuts.h"

#include "test_support.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <set>

namespace trovara::test {
namespace {

using app::KeyCombination;

struct KeyCase {
    int qtKey;
    bool keypad;
    int keyCode;
};

TEST(KeyCodeTable, QtKeysTypeTheirVirtualKeyCodes)
{
    const KeyCase cases[] = {
        {Qt::Key_A, false, 0x00},      {Qt::Key_S, false, 0x01},         {Qt::Key_Z, false, 0x06},
        {Qt::Key_Q, false, 0x0C},      {Qt::Key_1, false, 0x12},         {Qt::Key_5, false, 0x17},
        {Qt::Key_6, false, 0x16},      {Qt::Key_0, false, 0x1D},         {Qt::Key_Return, false, 0x24},
        {Qt::Key_Tab, false, 0x30},    {Qt::Key_Space, false, 0x31},     {Qt::Key_Backspace, false, 0x33},
        {Qt::Key_Escape, false, 0x35}, {Qt::Key_Delete, false, 0x75},    {Qt::Key_F1, false, 0x7A},
        {Qt::Key_F5, false, 0x60},     {Qt::Key_F12, false, 0x6F},       {Qt::Key_Left, false, 0x7B},
        {Qt::Key_Right, false, 0x7C},  {Qt::Key_Down, false, 0x7D},      {Qt::Key_Up, false, 0x7E},
        {Qt::Key_Home, false, 0x73},   {Qt::Key_PageDown, false, 0x79},  {Qt::Key_QuoteLeft, false, 0x32},
        // The keypad has keys of its own.
        {Qt::Key_7, true, 0x59},       {Qt::Key_0, true, 0x52},          {Qt::Key_Enter, true, 0x4C},
        {Qt::Key_Plus, true, 0x45},    {Qt::Key_Asterisk, true, 0x43},
        // Shifted symbols of a US layout are the keys that type them.
        {Qt::Key_Exclam, false, 0x12}, {Qt::Key_Question, false, 0x2C},  {Qt::Key_Plus, false, 0x18},
        {Qt::Key_Backtab, false, 0x30},
        // PC keys that stand for Macintosh ones.
        {Qt::Key_Print, false, 0x69},  {Qt::Key_Help, false, 0x72},
    };
    for (const KeyCase& c : cases) {
        EXPECT_EQ(app::virtualKeyCode(c.qtKey, c.keypad), c.keyCode)
            << "Qt key 0x" << std::hex << c.qtKey << (c.keypad ? " (keypad)" : "");
    }
}

TEST(KeyCodeTable, KeysWithoutAVirtualKeyCodeAreRefused)
{
    for (int key : {int(Qt::Key_Control), int(Qt::Key_Shift), int(Qt::Key_Meta), int(Qt::Key_VolumeUp), 0}) {
        EXPECT_EQ(app::virtualKeyCode(key), -1) << std::hex << key;
    }
    EXPECT_FALSE(app::combinationFromQt(Qt::Key_Alt, Qt::AltModifier).isValid());
    EXPECT_FALSE(app::qtKeyForVirtualKeyCode(0x0A));  // the ISO section key: no Qt key of its own
    EXPECT_FALSE(app::qtKeyForVirtualKeyCode(500));
}

TEST(KeyCodeTable, EveryStoredCodeTurnsBackIntoItsKey)
{
    std::set<int> seen;
    for (int code = 0; code < 128; ++code) {
        const std::optional<app::QtKey> key = app::qtKeyForVirtualKeyCode(code);
        if (!key) {
            continue;
        }
        seen.insert(code);
        EXPECT_EQ(app::virtualKeyCode(key->key, key->keypad), code) << "code 0x" << std::hex << code;
    }
    // Letters, digits, punctuation, the editing and arrow keys, F1-F20
    // and the keypad.
    EXPECT_GE(seen.size(), 100u);
}

TEST(StoredModifiers, FollowQtsMacintoshMapping)
{
    struct Case {
        Qt::KeyboardModifiers qt;
        int stored;
    };
    const Case cases[] = {
        {Qt::NoModifier, 0},
        {Qt::ControlModifier, 256},
        {Qt::ShiftModifier, 512},
        {Qt::AltModifier, 2048},
        {Qt::MetaModifier, 4096},
        {Qt::ControlModifier | Qt::MetaModifier, 4352},
        {Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, 6400},
        {Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier, 6912},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(app::storedModifiers(c.qt), c.stored);
        EXPECT_EQ(app::qtModifiers(c.stored), c.qt) << c.stored;
    }
    // The keypad flag has no stored form.
    EXPECT_EQ(app::storedModifiers(Qt::KeypadModifier | Qt::ShiftModifier), 512);
}

TEST(KeyCombinationText, NamesModifiersThenKey)
{
    EXPECT_EQ(app::keyCombinationText({124, 4352}), QStringLiteral("Ctrl+Meta+Right"));
    EXPECT_EQ(app::keyCombinationText({124, 6400}), QStringLiteral("Ctrl+Alt+Meta+Right"));
    EXPECT_EQ(app::keyCombinationText({0x01, 256 | 512}), QStringLiteral("Ctrl+Shift+S"));
    EXPECT_EQ(app::keyCombinationText({0x60, 0}), QStringLiteral("F5"));
    EXPECT_EQ(app::keyCombinationText({0x59, 2048}), QStringLiteral("Alt+Num+7"));
    EXPECT_EQ(app::keyCombinationText({}), QString());
}

TEST(PortalShortcutTrigger, WritesTheKeysymFormTheDesktopPortalTakes)
{
    const struct {
        app::KeyCombination combination;
        const char* trigger;
    } rows[] = {
        // The registered defaults: command+control and command+option+control
        // with the right arrow.
        {{0x7C, 4352}, "CTRL+LOGO+Right"},
        {{0x7C, 6400}, "CTRL+ALT+LOGO+Right"},
        {{0x00, app::kShiftKeyMask | app::kCommandKeyMask}, "CTRL+SHIFT+a"},
        {{0x31, app::kOptionKeyMask}, "ALT+space"},
        {{0x59, app::kCommandKeyMask}, "CTRL+KP_7"},
        {{0x60, 0}, "F5"},
        {{0x2F, app::kControlKeyMask}, "LOGO+period"},
        {{-1, app::kCommandKeyMask}, ""},
        {{0x7F7F, 0}, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(app::portalShortcutTrigger(row.combination), QLatin1String(row.trigger)) << row.trigger;
    }
}

TEST(KeyCombinationDictionary, RoundTripsAndRefusesMalformedEntries)
{
    const KeyCombination combination{124, 4352};
    const QVariantMap stored = combination.toDictionary();
    EXPECT_EQ(stored.value(QStringLiteral("keyCode")).toInt(), 124);
    EXPECT_EQ(stored.value(QStringLiteral("modifiers")).toInt(), 4352);
    EXPECT_EQ(stored.size(), 2);
    EXPECT_EQ(KeyCombination::fromDictionary(stored), combination);

    // Read back from a settings file, the numbers may come as text.
    EXPECT_EQ(KeyCombination::fromDictionary(QVariantMap{{QStringLiteral("keyCode"), QStringLiteral("124")},
                                                         {QStringLiteral("modifiers"), QStringLiteral("4352")}}),
              combination);
    EXPECT_FALSE(KeyCombination::fromDictionary(QVariant()));
    EXPECT_FALSE(KeyCombination::fromDictionary(QVariantMap{{QStringLiteral("keyCode"), 124}}));
    EXPECT_FALSE(KeyCombination::fromDictionary(
        QVariantMap{{QStringLiteral("keyCode"), -1}, {QStringLiteral("modifiers"), 0}}));
    EXPECT_FALSE(KeyCombination::fromDictionary(
        QVariantMap{{QStringLiteral("keyCode"), 3}, {QStringLiteral("modifiers"), 1 << 20}}));
}

TEST(DesktopShortcutTexts, ParseAsTheDesktopsWriteThem)
{
    struct Case {
        const char* text;
        bool gtk;
        std::optional<KeyCombination> expected;
    };
    const Case cases[] = {
        {"Meta+Ctrl+Right", false, KeyCombination{124, 4352}},
        {"Alt+F4", false, KeyCombination{0x76, 2048}},
        {"Ctrl++", false, KeyCombination{0x18, 256}},
        {"Meta+Num+7", false, KeyCombination{0x59, 4096}},
        {"Print", false, KeyCombination{0x69, 0}},
        {"Hyper+X", false, std::nullopt},
        {"Ctrl+", false, std::nullopt},
        {"", false, std::nullopt},
        {"<Super><Control>Right", true, KeyCombination{124, 4352}},
        {"<Primary><Alt>t", true, KeyCombination{0x11, 2048 | 256}},
        {"<Control><Alt>Delete", true, KeyCombination{0x75, 2048 | 256}},
        {"<Super>Above_Tab", true, KeyCombination{0x32, 4096}},
        {"<Shift><Super>Page_Up", true, KeyCombination{0x74, 4096 | 512}},
        {"<Mod4>KP_Add", true, KeyCombination{0x45, 4096}},
        {"<Alt>space", true, KeyCombination{0x31, 2048}},
        {"XF86AudioMute", true, std::nullopt},
        {"<Super>", true, std::nullopt},
        {"<Bogus>a", true, std::nullopt},
        {"<Super", true, std::nullopt},
    };
    for (const Case& c : cases) {
        const QString text = QString::fromLatin1(c.text);
        const auto parsed = c.gtk ? app::parseGtkAccelerator(text) : app::parsePortableShortcut(text);
        EXPECT_EQ(parsed, c.expected) << c.text;
    }
}

TEST(SystemShortcuts, ReadsKdesGlobalShortcutsFile)
{
    app::SystemShortcuts shortcuts;
    shortcuts.addKdeShortcuts(QStringLiteral(
        "[kwin]\n"
        "Switch One Desktop to the Right=Meta+Ctrl+Right,Meta+Ctrl+Right,Switch One Desktop to the Right\n"
        "Window Close=Alt+F4,Alt+F4,Close Window\n"
        "Expose=Ctrl+F9\\tMeta+W,Ctrl+F9,Toggle Present Windows\n"
        "Unused=none,none,Nothing\n"
        "Comma=Meta+\\,,none,Comma key\n"
        "_k_friendly_name=KWin\n"
        "[ksmserver]\n"
        "Lock Session=Meta+L\\tScreensaver,Meta+L\\tScreensaver,Lock Session\n"));
    EXPECT_TRUE(shortcuts.contains({124, 4352}));
    EXPECT_TRUE(shortcuts.contains({0x76, 2048}));
    EXPECT_TRUE(shortcuts.contains({0x65, 256}));   // Ctrl+F9
    EXPECT_TRUE(shortcuts.contains({0x0D, 4096}));  // Meta+W after the tab
    EXPECT_TRUE(shortcuts.contains({0x2B, 4096}));  // Meta+,
    EXPECT_TRUE(shortcuts.contains({0x25, 4096}));  // Meta+L
    // Only the active shortcut counts, not the default beside it.
    EXPECT_EQ(shortcuts.combinations().size(), 6u);
}

TEST(SystemShortcuts, ReadsGnomeKeyBindings)
{
    app::SystemShortcuts shortcuts;
    shortcuts.addGsettingsOutput(QStringLiteral(
        "org.gnome.desktop.wm.keybindings switch-to-workspace-left ['<Super>Page_Up', '<Super><Alt>Left', "
        "'<Control><Alt>Left']\n"
        "org.gnome.desktop.wm.keybindings minimize ['<Super>h']\n"
        "org.gnome.desktop.wm.keybindings move-to-center @as []\n"
        "org.gnome.settings-daemon.plugins.media-keys screensaver '<Super>l'\n"
        "org.gnome.settings-daemon.plugins.media-keys custom-keybindings ['/org/gnome/custom0/']\n"
        "org.gnome.settings-daemon.plugins.media-keys volume-step 6\n"));
    EXPECT_TRUE(shortcuts.contains({0x74, 4096}));
    EXPECT_TRUE(shortcuts.contains({0x7B, 4096 | 2048}));
    EXPECT_TRUE(shortcuts.contains({0x7B, 2048 | 256}));
    EXPECT_TRUE(shortcuts.contains({0x04, 4096}));
    EXPECT_TRUE(shortcuts.contains({0x25, 4096}));
    EXPECT_EQ(shortcuts.combinations().size(), 5u);
}

TEST(SystemShortcuts, FromDesktopJoinsBuiltInKdeAndGnome)
{
    const QString folder = makeTemporaryFolder(QStringLiteral("desktop"));
    const QString kde = folder + QStringLiteral("/kglobalshortcutsrc");
    QFile file(kde);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[plasmashell]\nactivate application launcher=Meta+F1,none,Launcher\n");
    file.close();
    QStringList asked;
    const app::SystemShortcuts shortcuts = app::SystemShortcuts::fromDesktop(kde, [&](const QString& schema) {
        asked << schema;
        return schema == QLatin1String("org.gnome.shell.keybindings")
                   ? QStringLiteral("org.gnome.shell.keybindings toggle-overview ['<Super>s']\n")
                   : QString();
    });
    EXPECT_EQ(asked, app::SystemShortcuts::gnomeKeyBindingSchemas());
    EXPECT_TRUE(shortcuts.contains({0x7A, 4096}));          // KDE: Meta+F1
    EXPECT_TRUE(shortcuts.contains({0x01, 4096}));          // GNOME: Super+S
    EXPECT_TRUE(shortcuts.contains({0x30, 2048}));          // built in: Alt+Tab
    EXPECT_TRUE(shortcuts.contains({0x75, 256 | 2048}));    // built in: Ctrl+Alt+Del
    // The registered defaults stay usable where the desktop does not take them.
    EXPECT_FALSE(shortcuts.contains({124, 4352}));
    EXPECT_FALSE(shortcuts.contains({124, 6400}));
    QDir(folder).removeRecursively();
}

TEST(SystemShortcuts, RefusalMessageQuotesTheCombination)
{
    EXPECT_EQ(app::SystemShortcuts::refusalMessage({0x30, 2048}),
              QStringLiteral("The key combination \"Alt+Tab\" can't be used because it's already used by a "
                             "system-wide keyboard shortcut. (If you really want to use this key combination, most "
                             "shortcuts can be changed in the Keyboard & Mouse panel in System Preferences.)"));
}

}  // namespace
}  // namespace trovara::test
