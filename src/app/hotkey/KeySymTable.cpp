#include "app/hotkey/KeySymTable.h"

#include <array>

namespace {

struct KeySym {
    int qtKey;
    std::uint32_t value;
    const char* name;
};

// Keys whose symbol is not simply their lower-case character.
constexpr std::array namedKeySyms{
    KeySym{Qt::Key_Space, 0x0020, "space"},
    KeySym{Qt::Key_Apostrophe, 0x0027, "apostrophe"},
    KeySym{Qt::Key_Comma, 0x002c, "comma"},
    KeySym{Qt::Key_Minus, 0x002d, "minus"},
    KeySym{Qt::Key_Period, 0x002e, "period"},
    KeySym{Qt::Key_Slash, 0x002f, "slash"},
    KeySym{Qt::Key_Semicolon, 0x003b, "semicolon"},
    KeySym{Qt::Key_Equal, 0x003d, "equal"},
    KeySym{Qt::Key_BracketLeft, 0x005b, "bracketleft"},
    KeySym{Qt::Key_Backslash, 0x005c, "backslash"},
    KeySym{Qt::Key_BracketRight, 0x005d, "bracketright"},
    KeySym{Qt::Key_QuoteLeft, 0x0060, "grave"},
    KeySym{Qt::Key_Backspace, 0xff08, "BackSpace"},
    KeySym{Qt::Key_Tab, 0xff09, "Tab"},
    KeySym{Qt::Key_Return, 0xff0d, "Return"},
    KeySym{Qt::Key_Escape, 0xff1b, "Escape"},
    KeySym{Qt::Key_Home, 0xff50, "Home"},
    KeySym{Qt::Key_Left, 0xff51, "Left"},
    KeySym{Qt::Key_Up, 0xff52, "Up"},
    KeySym{Qt::Key_Right, 0xff53, "Right"},
    KeySym{Qt::Key_Down, 0xff54, "Down"},
    KeySym{Qt::Key_PageUp, 0xff55, "Page_Up"},
    KeySym{Qt::Key_PageDown, 0xff56, "Page_Down"},
    KeySym{Qt::Key_End, 0xff57, "End"},
    KeySym{Qt::Key_Insert, 0xff63, "Insert"},
    KeySym{Qt::Key_Enter, 0xff8d, "KP_Enter"},
    KeySym{Qt::Key_Delete, 0xffff, "Delete"},
};

constexpr std::uint32_t keysymF1 = 0xffbe;

struct Found {
    std::uint32_t value;
    QString name;
};

std::optional<Found> find(Qt::Key key) {
    // Letters: the symbol of the unshifted key, which is the lower-case letter.
    if (key >= Qt::Key_A && key <= Qt::Key_Z) {
        const auto lower = static_cast<std::uint32_t>(key - Qt::Key_A + 'a');
        return Found{lower, QString(QChar(lower))};
    }
    if (key >= Qt::Key_0 && key <= Qt::Key_9) {
        const auto digit = static_cast<std::uint32_t>(key);
        return Found{digit, QString(QChar(digit))};
    }
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35) {
        const int number = key - Qt::Key_F1;
        return Found{keysymF1 + static_cast<std::uint32_t>(number),
                     QStringLiteral("F%1").arg(number + 1)};
    }
    for (const KeySym& sym : namedKeySyms) {
        if (sym.qtKey == key)
            return Found{sym.value, QString::fromLatin1(sym.name)};
    }
    return std::nullopt;
}

} // namespace

std::optional<std::uint32_t> KeySymTable::keysym(Qt::Key key) {
    const std::optional<Found> found = find(key);
    if (!found)
        return std::nullopt;
    return found->value;
}

QString KeySymTable::name(Qt::Key key) {
    const std::optional<Found> found = find(key);
    return found ? found->name : QString();
}
