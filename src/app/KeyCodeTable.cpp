#include "app/KeyCodeTable.h"

#include "config/ShortcutConfig.h"

#include <array>
#include <utility>

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
