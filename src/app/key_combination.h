// Keyboard shortcuts as Trovara stores them, and their translation to and
// from Qt's keys and the desktops' own shortcut texts.
//
// A stored shortcut is a dictionary of two integers: "keyCode", a
// hardware-independent virtual key code (the Macintosh numbering, which
// older preference files and the helper application share), and
// "modifiers", the sum of command 256, shift 512, option 2048 and
// control 4096. On Linux command is Ctrl, option is Alt and control is
// Meta (the Super or Windows key), as Qt maps them on the Macintosh, so a
// shortcut recorded on either platform means the same keys.
//
// Pure functions over tables; usable on any thread.
#pragma once

#include <Qt>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace trovara::app {

// The stored modifier flags.
inline constexpr int kCommandKeyMask = 256;
inline constexpr int kShiftKeyMask = 512;
inline constexpr int kOptionKeyMask = 2048;
inline constexpr int kControlKeyMask = 4096;
inline constexpr int kAllModifierMasks = kCommandKeyMask | kShiftKeyMask | kOptionKeyMask | kControlKeyMask;

// One key with its modifiers, in the stored form.
struct KeyCombination {
    int keyCode = -1;  // virtual key code; -1 for none
    int modifiers = 0; // stored flags

    bool isValid() const { return keyCode >= 0; }
    bool operator==(const KeyCombination&) const = default;

    // {"keyCode": …, "modifiers": …}
    QVariantMap toDictionary() const;
    // A stored dictionary; nothing when it is not one (missing or
    // non-numeric entries, a negative key code, unknown modifier bits).
    static std::optional<KeyCombination> fromDictionary(const QVariant& stored);
};

// Qt's modifiers <-> the stored flags. Qt's keypad and group-switch flags
// have no stored form and are dropped.
int storedModifiers(Qt::KeyboardModifiers modifiers);
Qt::KeyboardModifiers qtModifiers(int stored);

// A Qt key as typed (the keypad flag tells the keypad's digits and
// operators apart) <-> its virtual key code. Shifted symbols of a US layout
// ("!" for 1) give the code of their key. -1 / nothing for keys that have
// no virtual key code (modifier keys alone, media keys).
int virtualKeyCode(int qtKey, bool keypad = false);
struct QtKey {
    int key = 0;
    bool keypad = false;
    bool operator==(const QtKey&) const = default;
};
std::optional<QtKey> qtKeyForVirtualKeyCode(int keyCode);

// A key event's key and modifiers as a stored combination (invalid when the
// key has no virtual key code).
KeyCombination combinationFromQt(int qtKey, Qt::KeyboardModifiers modifiers);

// What a person reads: "Ctrl+Alt+Shift+Meta+Right", "F5", "Num+7". Empty
// for an invalid combination.
QString keyCombinationText(const KeyCombination& combination);

// The trigger the desktop portal's global shortcuts take (the XDG shortcut
// form: "CTRL+ALT+Right", "LOGO+SHIFT+a", "KP_7"): modifiers in capitals,
// then the key's keysym name. Empty for an invalid combination.
QString portalShortcutTrigger(const KeyCombination& combination);

// A shortcut as KDE writes it ("Meta+Ctrl+Right", "Alt+F4"), or as GNOME
// writes an accelerator ("<Super><Control>Right", "<Primary><Alt>t").
// Nothing for an empty text, a key Trovara cannot store or an unknown
// modifier.
std::optional<KeyCombination> parsePortableShortcut(const QString& text);
std::optional<KeyCombination> parseGtkAccelerator(const QString& text);

}  // namespace trovara::app
