#include "app/key_combination.h"

#include <QStringList>

#include <array>
#include <span>

namespace trovara::app {

namespace {

// One key: its virtual key code, the Qt key that types it, whether that is
// a keypad key, the name Qt (and KDE) write and the name GTK writes.
struct KeyEntry {
    int keyCode;
    int qtKey;
    bool keypad;
    const char* portableName;
    const char* gtkName;
};

// The virtual key codes, by key. The first entry of a code is the one a
// stored code turns back into.
constexpr KeyEntry kKeys[] = {
    {0x00, Qt::Key_A, false, "A", "a"},
    {0x0B, Qt::Key_B, false, "B", "b"},
    {0x08, Qt::Key_C, false, "C", "c"},
    {0x02, Qt::Key_D, false, "D", "d"},
    {0x0E, Qt::Key_E, false, "E", "e"},
    {0x03, Qt::Key_F, false, "F", "f"},
    {0x05, Qt::Key_G, false, "G", "g"},
    {0x04, Qt::Key_H, false, "H", "h"},
    {0x22, Qt::Key_I, false, "I", "i"},
    {0x26, Qt::Key_J, false, "J", "j"},
    {0x28, Qt::Key_K, false, "K", "k"},
    {0x25, Qt::Key_L, false, "L", "l"},
    {0x2E, Qt::Key_M, false, "M", "m"},
    {0x2D, Qt::Key_N, false, "N", "n"},
    {0x1F, Qt::Key_O, false, "O", "o"},
    {0x23, Qt::Key_P, false, "P", "p"},
    {0x0C, Qt::Key_Q, false, "Q", "q"},
    {0x0F, Qt::Key_R, false, "R", "r"},
    {0x01, Qt::Key_S, false, "S", "s"},
    {0x11, Qt::Key_T, false, "T", "t"},
    {0x20, Qt::Key_U, false, "U", "u"},
    {0x09, Qt::Key_V, false, "V", "v"},
    {0x0D, Qt::Key_W, false, "W", "w"},
    {0x07, Qt::Key_X, false, "X", "x"},
    {0x10, Qt::Key_Y, false, "Y", "y"},
    {0x06, Qt::Key_Z, false, "Z", "z"},
    {0x1D, Qt::Key_0, false, "0", "0"},
    {0x12, Qt::Key_1, false, "1", "1"},
    {0x13, Qt::Key_2, false, "2", "2"},
    {0x14, Qt::Key_3, false, "3", "3"},
    {0x15, Qt::Key_4, false, "4", "4"},
    {0x17, Qt::Key_5, false, "5", "5"},
    {0x16, Qt::Key_6, false, "6", "6"},
    {0x1A, Qt::Key_7, false, "7", "7"},
    {0x1C, Qt::Key_8, false, "8", "8"},
    {0x19, Qt::Key_9, false, "9", "9"},
    {0x18, Qt::Key_Equal, false, "=", "equal"},
    {0x1B, Qt::Key_Minus, false, "-", "minus"},
    {0x21, Qt::Key_BracketLeft, false, "[", "bracketleft"},
    {0x1E, Qt::Key_BracketRight, false, "]", "bracketright"},
    {0x27, Qt::Key_Apostrophe, false, "'", "apostrophe"},
    {0x29, Qt::Key_Semicolon, false, ";", "semicolon"},
    {0x2A, Qt::Key_Backslash, false, "\\", "backslash"},
    {0x2B, Qt::Key_Comma, false, ",", "comma"},
    {0x2C, Qt::Key_Slash, false, "/", "slash"},
    {0x2F, Qt::Key_Period, false, ".", "period"},
    {0x32, Qt::Key_QuoteLeft, false, "`", "grave"},
    {0x24, Qt::Key_Return, false, "Return", "Return"},
    {0x30, Qt::Key_Tab, false, "Tab", "Tab"},
    {0x31, Qt::Key_Space, false, "Space", "space"},
    {0x33, Qt::Key_Backspace, false, "Backspace", "BackSpace"},
    {0x35, Qt::Key_Escape, false, "Esc", "Escape"},
    {0x75, Qt::Key_Delete, false, "Del", "Delete"},
    {0x72, Qt::Key_Insert, false, "Ins", "Insert"},
    {0x73, Qt::Key_Home, false, "Home", "Home"},
    {0x77, Qt::Key_End, false, "End", "End"},
    {0x74, Qt::Key_PageUp, false, "PgUp", "Page_Up"},
    {0x79, Qt::Key_PageDown, false, "PgDown", "Page_Down"},
    {0x7B, Qt::Key_Left, false, "Left", "Left"},
    {0x7C, Qt::Key_Right, false, "Right", "Right"},
    {0x7D, Qt::Key_Down, false, "Down", "Down"},
    {0x7E, Qt::Key_Up, false, "Up", "Up"},
    {0x7A, Qt::Key_F1, false, "F1", "F1"},
    {0x78, Qt::Key_F2, false, "F2", "F2"},
    {0x63, Qt::Key_F3, false, "F3", "F3"},
    {0x76, Qt::Key_F4, false, "F4", "F4"},
    {0x60, Qt::Key_F5, false, "F5", "F5"},
    {0x61, Qt::Key_F6, false, "F6", "F6"},
    {0x62, Qt::Key_F7, false, "F7", "F7"},
    {0x64, Qt::Key_F8, false, "F8", "F8"},
    {0x65, Qt::Key_F9, false, "F9", "F9"},
    {0x6D, Qt::Key_F10, false, "F10", "F10"},
    {0x67, Qt::Key_F11, false, "F11", "F11"},
    {0x6F, Qt::Key_F12, false, "F12", "F12"},
    {0x69, Qt::Key_F13, false, "F13", "F13"},
    {0x6B, Qt::Key_F14, false, "F14", "F14"},
    {0x71, Qt::Key_F15, false, "F15", "F15"},
    {0x6A, Qt::Key_F16, false, "F16", "F16"},
    {0x40, Qt::Key_F17, false, "F17", "F17"},
    {0x4F, Qt::Key_F18, false, "F18", "F18"},
    {0x50, Qt::Key_F19, false, "F19", "F19"},
    {0x5A, Qt::Key_F20, false, "F20", "F20"},
    {0x52, Qt::Key_0, true, "0", "KP_0"},
    {0x53, Qt::Key_1, true, "1", "KP_1"},
    {0x54, Qt::Key_2, true, "2", "KP_2"},
    {0x55, Qt::Key_3, true, "3", "KP_3"},
    {0x56, Qt::Key_4, true, "4", "KP_4"},
    {0x57, Qt::Key_5, true, "5", "KP_5"},
    {0x58, Qt::Key_6, true, "6", "KP_6"},
    {0x59, Qt::Key_7, true, "7", "KP_7"},
    {0x5B, Qt::Key_8, true, "8", "KP_8"},
    {0x5C, Qt::Key_9, true, "9", "KP_9"},
    {0x41, Qt::Key_Period, true, ".", "KP_Decimal"},
    {0x43, Qt::Key_Asterisk, true, "*", "KP_Multiply"},
    {0x45, Qt::Key_Plus, true, "+", "KP_Add"},
    {0x4B, Qt::Key_Slash, true, "/", "KP_Divide"},
    {0x4E, Qt::Key_Minus, true, "-", "KP_Subtract"},
    {0x4C, Qt::Key_Enter, true, "Enter", "KP_Enter"},
    {0x51, Qt::Key_Equal, true, "=", "KP_Equal"},
    {0x47, Qt::Key_Clear, true, "Clear", "KP_Begin"},
};

// Keys that type a code whose first entry is another key: the shifted
// symbols of a US layout, the PC keys that stand for Macintosh ones, and
// Enter outside the keypad. One way only.
struct KeyAlias {
    int qtKey;
    int keyCode;
    const char* portableName;
    const char* gtkName;
};
constexpr KeyAlias kAliases[] = {
    {Qt::Key_Exclam, 0x12, "!", "exclam"},
    {Qt::Key_At, 0x13, "@", "at"},
    {Qt::Key_NumberSign, 0x14, "#", "numbersign"},
    {Qt::Key_Dollar, 0x15, "$", "dollar"},
    {Qt::Key_Percent, 0x17, "%", "percent"},
    {Qt::Key_AsciiCircum, 0x16, "^", "asciicircum"},
    {Qt::Key_Ampersand, 0x1A, "&", "ampersand"},
    {Qt::Key_Asterisk, 0x1C, "*", "asterisk"},
    {Qt::Key_ParenLeft, 0x19, "(", "parenleft"},
    {Qt::Key_ParenRight, 0x1D, ")", "parenright"},
    {Qt::Key_Plus, 0x18, "+", "plus"},
    {Qt::Key_Underscore, 0x1B, "_", "underscore"},
    {Qt::Key_BraceLeft, 0x21, "{", "braceleft"},
    {Qt::Key_BraceRight, 0x1E, "}", "braceright"},
    {Qt::Key_QuoteDbl, 0x27, "\"", "quotedbl"},
    {Qt::Key_Colon, 0x29, ":", "colon"},
    {Qt::Key_Bar, 0x2A, "|", "bar"},
    {Qt::Key_Less, 0x2B, "<", "less"},
    {Qt::Key_Question, 0x2C, "?", "question"},
    {Qt::Key_Greater, 0x2F, ">", "greater"},
    {Qt::Key_AsciiTilde, 0x32, "~", "asciitilde"},
    {Qt::Key_Backtab, 0x30, "Backtab", "ISO_Left_Tab"},
    {Qt::Key_Enter, 0x24, "Enter", "Enter"},
    {Qt::Key_Help, 0x72, "Help", "Help"},
    {Qt::Key_Print, 0x69, "Print", "Print"},
    {Qt::Key_ScrollLock, 0x6B, "ScrollLock", "Scroll_Lock"},
    {Qt::Key_Pause, 0x71, "Pause", "Pause"},
    // GNOME names the key above Tab by its place.
    {Qt::Key_QuoteLeft, 0x32, "`", "Above_Tab"},
};

const KeyEntry* entryForCode(int keyCode)
{
    for (const KeyEntry& entry : kKeys) {
        if (entry.keyCode == keyCode) {
            return &entry;
        }
    }
    return nullptr;
}

// The stored flag of each Qt modifier, in the order texts list them.
struct ModifierEntry {
    Qt::KeyboardModifier qt;
    int stored;
    const char* name;
};
constexpr ModifierEntry kModifiers[] = {
    {Qt::ControlModifier, kCommandKeyMask, "Ctrl"},
    {Qt::AltModifier, kOptionKeyMask, "Alt"},
    {Qt::ShiftModifier, kShiftKeyMask, "Shift"},
    {Qt::MetaModifier, kControlKeyMask, "Meta"},
};

std::optional<int> codeForName(const QString& name, bool keypad, bool gtk)
{
    for (const KeyEntry& entry : kKeys) {
        const QLatin1String known(gtk ? entry.gtkName : entry.portableName);
        if (entry.keypad == keypad && name.compare(known, Qt::CaseInsensitive) == 0) {
            return entry.keyCode;
        }
    }
    if (!keypad) {
        for (const KeyAlias& alias : kAliases) {
            const QLatin1String known(gtk ? alias.gtkName : alias.portableName);
            if (name.compare(known, Qt::CaseInsensitive) == 0) {
                return alias.keyCode;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

QVariantMap KeyCombination::toDictionary() const
{
    return {{QStringLiteral("keyCode"), keyCode}, {QStringLiteral("modifiers"), modifiers}};
}

std::optional<KeyCombination> KeyCombination::fromDictionary(const QVariant& stored)
{
    const QVariantMap map = stored.toMap();
    const QVariant code = map.value(QStringLiteral("keyCode"));
    const QVariant flags = map.value(QStringLiteral("modifiers"));
    bool codeOk = false;
    bool flagsOk = false;
    KeyCombination combination{code.toInt(&codeOk), flags.toInt(&flagsOk)};
    if (!codeOk || !flagsOk || combination.keyCode < 0 || (combination.modifiers & ~kAllModifierMasks) != 0) {
        return std::nullopt;
    }
    return combination;
}

int storedModifiers(Qt::KeyboardModifiers modifiers)
{
    int stored = 0;
    for (const ModifierEntry& entry : kModifiers) {
        if (modifiers.testFlag(entry.qt)) {
            stored |= entry.stored;
        }
    }
    return stored;
}

Qt::KeyboardModifiers qtModifiers(int stored)
{
    Qt::KeyboardModifiers modifiers;
    for (const ModifierEntry& entry : kModifiers) {
        if (stored & entry.stored) {
            modifiers |= entry.qt;
        }
    }
    return modifiers;
}

int virtualKeyCode(int qtKey, bool keypad)
{
    for (const KeyEntry& entry : kKeys) {
        if (entry.qtKey == qtKey && entry.keypad == keypad) {
            return entry.keyCode;
        }
    }
    // A keypad key that has no place of its own (Enter on some layouts)
    // falls back to the main keyboard's.
    for (const KeyEntry& entry : kKeys) {
        if (entry.qtKey == qtKey && !entry.keypad) {
            return entry.keyCode;
        }
    }
    for (const KeyAlias& alias : kAliases) {
        if (alias.qtKey == qtKey) {
            return alias.keyCode;
        }
    }
    return -1;
}

std::optional<QtKey> qtKeyForVirtualKeyCode(int keyCode)
{
    if (const KeyEntry* entry = entryForCode(keyCode)) {
        return QtKey{entry->qtKey, entry->keypad};
    }
    return std::nullopt;
}

KeyCombination combinationFromQt(int qtKey, Qt::KeyboardModifiers modifiers)
{
    const int code = virtualKeyCode(qtKey, modifiers.testFlag(Qt::KeypadModifier));
    if (code < 0) {
        return {};
    }
    return {code, storedModifiers(modifiers)};
}

QString keyCombinationText(const KeyCombination& combination)
{
    const KeyEntry* entry = entryForCode(combination.keyCode);
    if (!entry) {
        return {};
    }
    QStringList parts;
    for (const ModifierEntry& modifier : kModifiers) {
        if (combination.modifiers & modifier.stored) {
            parts << QLatin1String(modifier.name);
        }
    }
    if (entry->keypad) {
        parts << QStringLiteral("Num");
    }
    parts << QLatin1String(entry->portableName);
    return parts.join(QLatin1Char('+'));
}

QString portalShortcutTrigger(const KeyCombination& combination)
{
    const KeyEntry* entry = entryForCode(combination.keyCode);
    if (!entry) {
        return {};
    }
    static constexpr std::pair<int, const char*> kPortalModifiers[] = {
        {kCommandKeyMask, "CTRL"},
        {kOptionKeyMask, "ALT"},
        {kShiftKeyMask, "SHIFT"},
        {kControlKeyMask, "LOGO"},
    };
    QStringList parts;
    for (const auto& [stored, name] : kPortalModifiers) {
        if (combination.modifiers & stored) {
            parts << QLatin1String(name);
        }
    }
    parts << QLatin1String(entry->gtkName);
    return parts.join(QLatin1Char('+'));
}

std::optional<KeyCombination> parsePortableShortcut(const QString& text)
{
    // "+" is a key too: "Ctrl++" ends in it.
    QString rest = text.trimmed();
    if (rest.isEmpty()) {
        return std::nullopt;
    }
    int modifiers = 0;
    bool keypad = false;
    while (true) {
        const int plus = rest.indexOf(QLatin1Char('+'), 1);
        if (plus < 0) {
            break;
        }
        const QString name = rest.left(plus);
        bool known = false;
        for (const ModifierEntry& entry : kModifiers) {
            if (name.compare(QLatin1String(entry.name), Qt::CaseInsensitive) == 0) {
                modifiers |= entry.stored;
                known = true;
            }
        }
        if (name.compare(QLatin1String("Num"), Qt::CaseInsensitive) == 0) {
            keypad = true;
            known = true;
        }
        if (!known) {
            return std::nullopt;
        }
        rest = rest.mid(plus + 1);
    }
    const std::optional<int> code = codeForName(rest, keypad, false);
    if (!code) {
        return std::nullopt;
    }
    return KeyCombination{*code, modifiers};
}

std::optional<KeyCombination> parseGtkAccelerator(const QString& text)
{
    static const std::array<std::pair<const char*, int>, 10> names = {{
        {"control", kCommandKeyMask},
        {"ctrl", kCommandKeyMask},
        {"primary", kCommandKeyMask},
        {"shift", kShiftKeyMask},
        {"alt", kOptionKeyMask},
        {"mod1", kOptionKeyMask},
        {"super", kControlKeyMask},
        {"meta", kControlKeyMask},
        {"mod4", kControlKeyMask},
        {"hyper", kControlKeyMask},
    }};
    QString rest = text.trimmed();
    int modifiers = 0;
    while (rest.startsWith(QLatin1Char('<'))) {
        const int close = rest.indexOf(QLatin1Char('>'));
        if (close < 0) {
            return std::nullopt;
        }
        const QString name = rest.mid(1, close - 1);
        bool known = false;
        for (const auto& [modifier, flag] : names) {
            if (name.compare(QLatin1String(modifier), Qt::CaseInsensitive) == 0) {
                modifiers |= flag;
                known = true;
            }
        }
        if (!known) {
            return std::nullopt;
        }
        rest = rest.mid(close + 1);
    }
    if (rest.isEmpty()) {
        return std::nullopt;
    }
    const bool keypad = rest.startsWith(QLatin1String("KP_"));
    const std::optional<int> code = codeForName(rest, keypad, true);
    if (!code) {
        return std::nullopt;
    }
    return KeyCombination{*code, modifiers};
}

}  // namespace trovara::app
