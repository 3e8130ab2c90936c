#include "app/hotkey/x11/X11HotKeyBackend.h"

#include "app/hotkey/KeySymTable.h"
#include "config/KeyCodeTable.h"

#include <QCoreApplication>

#include <xcb/xcb_keysyms.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

namespace {

constexpr xcb_keysym_t numLockKeysym = 0xff7f;

struct KeySymbolsDeleter {
    void operator()(xcb_key_symbols_t* symbols) const { xcb_key_symbols_free(symbols); }
};
using KeySymbols = std::unique_ptr<xcb_key_symbols_t, KeySymbolsDeleter>;

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter>;

// Every keycode that produces the symbol, in any group or level.
std::vector<xcb_keycode_t> keycodesFor(xcb_key_symbols_t* symbols, xcb_keysym_t keysym) {
    std::vector<xcb_keycode_t> keycodes;
    const XcbReply<xcb_keycode_t> list(xcb_key_symbols_get_keycode(symbols, keysym));
    for (const xcb_keycode_t* code = list.get(); code && *code != XCB_NO_SYMBOL; ++code)
        keycodes.push_back(*code);
    return keycodes;
}

// The XKB keycode of the key where a US layout has key; the key-code table knows the places.
std::optional<std::uint32_t> placeOf(Qt::Key key) {
    const std::optional<std::uint16_t> code = KeyCodeTable::keyCode(key);
    return code ? KeyCodeTable::xkbKeycode(*code) : std::nullopt;
}

std::vector<xcb_window_t> rootWindows(xcb_connection_t* connection) {
    std::vector<xcb_window_t> roots;
    for (auto it = xcb_setup_roots_iterator(xcb_get_setup(connection)); it.rem;
         xcb_screen_next(&it))
        roots.push_back(it.data->root);
    return roots;
}

} // namespace

X11HotKeyBackend::X11HotKeyBackend(xcb_connection_t* connection, QObject* parent)
    : HotKeyBackend(parent)
    , m_connection(connection) {
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11HotKeyBackend::~X11HotKeyBackend() {
    unregisterHotKey();
    if (QCoreApplication* app = QCoreApplication::instance())
        app->removeNativeEventFilter(this);
}

std::uint16_t X11HotKeyBackend::x11Modifiers(Qt::KeyboardModifiers modifiers) {
    constexpr std::array<std::pair<Qt::KeyboardModifier, std::uint16_t>, 4> bits{{
        {Qt::ControlModifier, XCB_MOD_MASK_CONTROL},
        {Qt::ShiftModifier, XCB_MOD_MASK_SHIFT},
        {Qt::AltModifier, XCB_MOD_MASK_1},
        {Qt::MetaModifier, XCB_MOD_MASK_4},
    }};
    std::uint16_t x11 = 0;
    for (const auto& [modifier, x11Bit] : bits) {
        if (modifiers.testFlag(modifier))
            x11 |= x11Bit;
    }
    return x11;
}

std::uint16_t X11HotKeyBackend::numLockMask() const {
    const KeySymbols symbols(xcb_key_symbols_alloc(m_connection));
    const std::vector<xcb_keycode_t> numLock = keycodesFor(symbols.get(), numLockKeysym);
    const XcbReply<xcb_get_modifier_mapping_reply_t> mapping(xcb_get_modifier_mapping_reply(
        m_connection, xcb_get_modifier_mapping(m_connection), nullptr));
    if (!mapping || numLock.empty())
        return 0;
    const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(mapping.get());
    const int perModifier = mapping->keycodes_per_modifier;
    // Eight rows (Shift, Lock, Control, Mod1..Mod5), one bit each.
    for (int row = 0; row < 8; ++row) {
        for (int column = 0; column < perModifier; ++column) {
            const xcb_keycode_t code = keycodes[row * perModifier + column];
            for (const xcb_keycode_t lock : numLock) {
                if (code != 0 && code == lock)
                    return static_cast<std::uint16_t>(1U << row);
            }
        }
    }
    return 0;
}

void X11HotKeyBackend::registerHotKey(QKeyCombination key) {
    unregisterHotKey();
    // The key at its place on a US keyboard, as the recorder took it: under a layout without
    // Latin letters no key types "r", yet Ctrl+Alt+R is still the key where R sits. X servers
    // on Linux number keys as XKB does. Keys without a place of their own are found by their
    // symbol.
    std::vector<xcb_keycode_t> keycodes;
    if (const auto physical = placeOf(key.key())) {
        keycodes.push_back(static_cast<xcb_keycode_t>(*physical));
    } else {
        const std::optional<std::uint32_t> keysym = KeySymTable::keysym(key.key());
        if (!keysym)
            return;
        const KeySymbols symbols(xcb_key_symbols_alloc(m_connection));
        keycodes = keycodesFor(symbols.get(), *keysym);
    }

    m_modifiers = x11Modifiers(key.keyboardModifiers());
    const std::uint16_t numLock = numLockMask();
    m_ignoredModifiers = static_cast<std::uint16_t>(numLock | XCB_MOD_MASK_LOCK);
    // The grab matches the modifier state exactly, so the key is grabbed once for every
    // combination of Num Lock and Caps Lock.
    const std::array<std::uint16_t, 4> variants{
        0, XCB_MOD_MASK_LOCK, numLock, static_cast<std::uint16_t>(numLock | XCB_MOD_MASK_LOCK)};

    std::vector<Grab> grabs;
    std::vector<xcb_void_cookie_t> cookies;
    for (const xcb_window_t root : rootWindows(m_connection)) {
        for (const xcb_keycode_t keycode : keycodes) {
            for (const std::uint16_t variant : variants) {
                const auto modifiers = static_cast<std::uint16_t>(m_modifiers | variant);
                // Without Num Lock in the mapping two variants coincide; one grab is enough.
                bool seen = false;
                for (const Grab& grab : grabs)
                    seen = seen || (grab.root == root && grab.keycode == keycode &&
                                    grab.modifiers == modifiers);
                if (seen)
                    continue;
                grabs.push_back({root, keycode, modifiers});
                // owner_events false: the press reaches the root window even while one of
                // Quillmar's own windows has the focus.
                cookies.push_back(xcb_grab_key_checked(m_connection, 0, root, modifiers, keycode,
                                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
            }
        }
    }
    // A key held by another client fails with BadAccess, which only a checked request reveals.
    bool refused = false;
    for (const xcb_void_cookie_t cookie : cookies) {
        const XcbReply<xcb_generic_error_t> error(xcb_request_check(m_connection, cookie));
        refused = refused || error != nullptr;
    }
    if (refused) {
        // All or nothing: a key that works only in some lock states would be a puzzle.
        ungrab(grabs);
        return;
    }
    m_grabs = std::move(grabs);
}

void X11HotKeyBackend::unregisterHotKey() {
    ungrab(m_grabs);
    m_grabs.clear();
}

void X11HotKeyBackend::ungrab(const std::vector<Grab>& grabs) {
    // Ungrabbing releases only this client's grabs, never another program's.
    for (const Grab& grab : grabs)
        xcb_ungrab_key(m_connection, grab.keycode, grab.root, grab.modifiers);
    if (!grabs.empty())
        xcb_flush(m_connection);
}

bool X11HotKeyBackend::nativeEventFilter(const QByteArray& eventType, void* message,
                                         qintptr* result) {
    Q_UNUSED(result);
    if (m_grabs.empty() || eventType != "xcb_generic_event_t")
        return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & 0x7f) != XCB_KEY_PRESS)
        return false;
    const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event);
    // The low eight bits are the modifiers; the bits above are pointer buttons.
    const auto state = static_cast<std::uint16_t>(press->state & 0xff & ~m_ignoredModifiers);
    for (const Grab& grab : m_grabs) {
        if (press->event == grab.root && press->detail == grab.keycode && state == m_modifiers) {
            Q_EMIT pressed();
            return true;
        }
    }
    return false;
}
