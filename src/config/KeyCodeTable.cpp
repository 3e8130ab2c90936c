#include "config/KeyCodeTable.h"

#include "config/ShortcutConfig.h"

#include <QKeyEvent>
#include <QKeySequence>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

struct KeyPair {
    std::uint16_t code;
    int key;
};

// One table for both directions. Where Qt has two keys for one code (Backtab), only the first
// pairing is listed so the reverse lookup is unambiguous.
constexpr std::array keyPairs{
    KeyPair{0, Qt::Key_A},       KeyPair{1, Qt::Key_S},          KeyPair{2, Qt::Key_D},
    KeyPair{3, Qt::Key_F},       KeyPair{4, Qt::Key_H},          KeyPair{5, Qt::Key_G},
    KeyPair{6, Qt::Key_Z},       KeyPair{7, Qt::Key_X},          KeyPair{8, Qt::Key_C},
    KeyPair{9, Qt::Key_V},       KeyPair{11, Qt::Key_B},         KeyPair{12, Qt::Key_Q},
    KeyPair{13, Qt::Key_W},      KeyPair{14, Qt::Key_E},         KeyPair{15, Qt::Key_R},
    KeyPair{16, Qt::Key_Y},      KeyPair{17, Qt::Key_T},         KeyPair{18, Qt::Key_1},
    KeyPair{19, Qt::Key_2},      KeyPair{20, Qt::Key_3},         KeyPair{21, Qt::Key_4},
    KeyPair{22, Qt::Key_6},      KeyPair{23, Qt::Key_5},         KeyPair{24, Qt::Key_Equal},
    KeyPair{25, Qt::Key_9},      KeyPair{26, Qt::Key_7},         KeyPair{27, Qt::Key_Minus},
    KeyPair{28, Qt::Key_8},      KeyPair{29, Qt::Key_0},         KeyPair{30, Qt::Key_BracketRight},
    KeyPair{31, Qt::Key_O},      KeyPair{32, Qt::Key_U},         KeyPair{33, Qt::Key_BracketLeft},
    KeyPair{34, Qt::Key_I},      KeyPair{35, Qt::Key_P},         KeyPair{36, Qt::Key_Return},
    KeyPair{37, Qt::Key_L},      KeyPair{38, Qt::Key_J},         KeyPair{39, Qt::Key_Apostrophe},
    KeyPair{40, Qt::Key_K},      KeyPair{41, Qt::Key_Semicolon}, KeyPair{42, Qt::Key_Backslash},
    KeyPair{43, Qt::Key_Comma},  KeyPair{44, Qt::Key_Slash},     KeyPair{45, Qt::Key_N},
    KeyPair{46, Qt::Key_M},      KeyPair{47, Qt::Key_Period},    KeyPair{48, Qt::Key_Tab},
    KeyPair{49, Qt::Key_Space},  KeyPair{50, Qt::Key_QuoteLeft}, KeyPair{51, Qt::Key_Backspace},
    KeyPair{53, Qt::Key_Escape}, KeyPair{76, Qt::Key_Enter},     KeyPair{105, Qt::Key_F13},
    KeyPair{107, Qt::Key_F14},   KeyPair{113, Qt::Key_F15},      KeyPair{122, Qt::Key_F1},
    KeyPair{120, Qt::Key_F2},    KeyPair{99, Qt::Key_F3},        KeyPair{118, Qt::Key_F4},
    KeyPair{96, Qt::Key_F5},     KeyPair{97, Qt::Key_F6},        KeyPair{98, Qt::Key_F7},
    KeyPair{100, Qt::Key_F8},    KeyPair{101, Qt::Key_F9},       KeyPair{109, Qt::Key_F10},
    KeyPair{103, Qt::Key_F11},   KeyPair{111, Qt::Key_F12},      KeyPair{114, Qt::Key_Insert},
    KeyPair{115, Qt::Key_Home},  KeyPair{116, Qt::Key_PageUp},   KeyPair{117, Qt::Key_Delete},
    KeyPair{119, Qt::Key_End},   KeyPair{121, Qt::Key_PageDown}, KeyPair{123, Qt::Key_Left},
    KeyPair{124, Qt::Key_Right}, KeyPair{125, Qt::Key_Down},     KeyPair{126, Qt::Key_Up},
};

struct XkbPair {
    std::uint32_t xkbKeycode;
    std::uint16_t code;
};

// Physical keys: the XKB keycode (Linux evdev code + 8) of each key of the table above, by its
// place on the keyboard. Keypad keys other than Enter are left out: they arrive as their main-row
// keys, which the table above knows.
constexpr std::array xkbPairs{
    XkbPair{9, 53},    XkbPair{10, 18},   XkbPair{11, 19},   XkbPair{12, 20},   XkbPair{13, 21},
    XkbPair{14, 23},   XkbPair{15, 22},   XkbPair{16, 26},   XkbPair{17, 28},   XkbPair{18, 25},
    XkbPair{19, 29},   XkbPair{20, 27},   XkbPair{21, 24},   XkbPair{22, 51},   XkbPair{23, 48},
    XkbPair{24, 12},   XkbPair{25, 13},   XkbPair{26, 14},   XkbPair{27, 15},   XkbPair{28, 17},
    XkbPair{29, 16},   XkbPair{30, 32},   XkbPair{31, 34},   XkbPair{32, 31},   XkbPair{33, 35},
    XkbPair{34, 33},   XkbPair{35, 30},   XkbPair{36, 36},   XkbPair{38, 0},    XkbPair{39, 1},
    XkbPair{40, 2},    XkbPair{41, 3},    XkbPair{42, 5},    XkbPair{43, 4},    XkbPair{44, 38},
    XkbPair{45, 40},   XkbPair{46, 37},   XkbPair{47, 41},   XkbPair{48, 39},   XkbPair{49, 50},
    XkbPair{51, 42},   XkbPair{52, 6},    XkbPair{53, 7},    XkbPair{54, 8},    XkbPair{55, 9},
    XkbPair{56, 11},   XkbPair{57, 45},   XkbPair{58, 46},   XkbPair{59, 43},   XkbPair{60, 47},
    XkbPair{61, 44},   XkbPair{65, 49},   XkbPair{67, 122},  XkbPair{68, 120},  XkbPair{69, 99},
    XkbPair{70, 118},  XkbPair{71, 96},   XkbPair{72, 97},   XkbPair{73, 98},   XkbPair{74, 100},
    XkbPair{75, 101},  XkbPair{76, 109},  XkbPair{95, 103},  XkbPair{96, 111},  XkbPair{104, 76},
    XkbPair{110, 115}, XkbPair{111, 126}, XkbPair{112, 116}, XkbPair{113, 123}, XkbPair{114, 124},
    XkbPair{115, 119}, XkbPair{116, 125}, XkbPair{117, 121}, XkbPair{118, 114}, XkbPair{119, 117},
    XkbPair{191, 105}, XkbPair{192, 107}, XkbPair{193, 113},
};

// The key under a shifted symbol on the US layout, whose positions the configuration's key
// codes number: Shift+1 arrives as "!", yet the key to register is the 1 key.
std::optional<int> unshiftedKey(int qtKey) {
    static const QString shifted = uR"(!@#$%^&*()_+{}|:"<>?~)"_s;
    static const QString unshifted = uR"(1234567890-=[]\;',./`)"_s;
    if (qtKey < 0x20 || qtKey > 0x7e)
        return std::nullopt;
    const qsizetype index = shifted.indexOf(QChar(qtKey));
    if (index < 0)
        return std::nullopt;
    return unshifted.at(index).unicode();
}

constexpr std::array<std::pair<Qt::KeyboardModifier, std::uint64_t>, 4> modifierPairs{{
    {Qt::ControlModifier, ShortcutConfig::CommandFlag},
    {Qt::AltModifier, ShortcutConfig::OptionFlag},
    {Qt::ShiftModifier, ShortcutConfig::ShiftFlag},
    {Qt::MetaModifier, ShortcutConfig::ControlFlag},
}};

} // namespace

std::optional<std::uint16_t> KeyCodeTable::keyCode(int qtKey) {
    // Shift+Tab arrives as Backtab; the key is still Tab.
    if (qtKey == Qt::Key_Backtab)
        qtKey = Qt::Key_Tab;
    for (const KeyPair& pair : keyPairs) {
        if (pair.key == qtKey)
            return pair.code;
    }
    return std::nullopt;
}

std::optional<int> KeyCodeTable::qtKey(std::uint16_t keyCode) {
    for (const KeyPair& pair : keyPairs) {
        if (pair.code == keyCode)
            return pair.key;
    }
    return std::nullopt;
}

std::optional<std::uint16_t> KeyCodeTable::keyCodeForXkbKeycode(std::uint32_t xkbKeycode) {
    for (const XkbPair& pair : xkbPairs) {
        if (pair.xkbKeycode == xkbKeycode)
            return pair.code;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> KeyCodeTable::xkbKeycode(std::uint16_t keyCode) {
    for (const XkbPair& pair : xkbPairs) {
        if (pair.code == keyCode)
            return pair.xkbKeycode;
    }
    return std::nullopt;
}

std::optional<std::uint16_t> KeyCodeTable::keyCode(const QKeyEvent& event) {
#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN)
    // Every Linux input path that names the physical key (X11, Wayland, libinput) gives its XKB
    // keycode; synthetic events give none. The place counts, not the layout's letter: under a
    // Russian layout the K key types "л" and is still key code 40.
    if (event.nativeScanCode() != 0) {
        if (const auto code = keyCodeForXkbKeycode(event.nativeScanCode()))
            return code;
    }
#endif
    if (const auto code = keyCode(event.key()))
        return code;
    if (const auto base = unshiftedKey(event.key()))
        return keyCode(*base);
    return std::nullopt;
}

std::uint64_t KeyCodeTable::modifierFlags(Qt::KeyboardModifiers mods) {
    std::uint64_t flags = 0;
    for (const auto& [modifier, flag] : modifierPairs) {
        if (mods.testFlag(modifier))
            flags |= flag;
    }
    return flags;
}

Qt::KeyboardModifiers KeyCodeTable::qtModifiers(std::uint64_t flags) {
    Qt::KeyboardModifiers mods;
    for (const auto& [modifier, flag] : modifierPairs) {
        if ((flags & flag) != 0)
            mods |= modifier;
    }
    return mods;
}

QString KeyCodeTable::displayText(const ShortcutConfig& shortcut) {
#ifdef Q_OS_MACOS
    return shortcut.displayString();
#else
    const Qt::KeyboardModifiers modifiers = qtModifiers(shortcut.modifierFlags);
    if (const std::optional<int> key = qtKey(shortcut.keyCode))
        return QKeySequence(QKeyCombination(modifiers, Qt::Key(*key)))
            .toString(QKeySequence::NativeText);
    // A code without a Qt key (from a file written elsewhere): the platform's modifier names,
    // then the label recorded with it.
    const QString withA =
        QKeySequence(QKeyCombination(modifiers, Qt::Key_A)).toString(QKeySequence::NativeText);
    return withA.chopped(1) + shortcut.displayKey;
#endif
}
