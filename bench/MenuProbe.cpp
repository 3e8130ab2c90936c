#include "MenuProbe.h"

#include <xcb/damage.h>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>

namespace {

template <typename Reply> using Owned = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply> Owned<Reply> own(Reply* reply) {
    return Owned<Reply>(reply, &std::free);
}

// X11 key symbols.
constexpr unsigned controlLeft = 0xffe3;
constexpr unsigned altLeft = 0xffe9;
constexpr unsigned letterR = 0x0072;
constexpr unsigned escape = 0xff1b;

} // namespace

MenuProbe::MenuProbe() {
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection))
        return;
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    const char name[] = "_NET_WM_PID";
    const auto atom = own(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, std::strlen(name), name), nullptr));
    m_pidAtom = atom ? atom->atom : 0;

    const xcb_query_extension_reply_t* damage =
        xcb_get_extension_data(m_connection, &xcb_damage_id);
    const xcb_query_extension_reply_t* test = xcb_get_extension_data(m_connection, &xcb_test_id);
    if (!damage || !damage->present || !test || !test->present)
        return;
    m_damageEvent = damage->first_event + XCB_DAMAGE_NOTIFY;
    // The extension must be told the version the client speaks before it is used.
    std::free(xcb_damage_query_version_reply(
        m_connection, xcb_damage_query_version(m_connection, 1, 1), nullptr));

    // Top-level windows report their creation and mapping on the root window.
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(m_connection, m_root, XCB_CW_EVENT_MASK, &mask);

    m_symbols = xcb_key_symbols_alloc(m_connection);
    m_control = keycodeOf(controlLeft);
    m_alt = keycodeOf(altLeft);
    m_r = keycodeOf(letterR);
    m_escape = keycodeOf(escape);
    xcb_flush(m_connection);
    m_ready = m_pidAtom && m_control && m_alt && m_r && m_escape;
}

MenuProbe::~MenuProbe() {
    if (m_symbols)
        xcb_key_symbols_free(m_symbols);
    xcb_disconnect(m_connection);
}

unsigned char MenuProbe::keycodeOf(unsigned keysym) {
    const std::unique_ptr<xcb_keycode_t, decltype(&std::free)> codes(
        xcb_key_symbols_get_keycode(m_symbols, keysym), &std::free);
    return codes ? codes.get()[0] : 0;
}

void MenuProbe::press(unsigned char keycode, bool down) {
    xcb_test_fake_input(m_connection, down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keycode,
                        XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

MenuProbe::TimePoint MenuProbe::pressHotKey() {
    press(m_control, true);
    press(m_alt, true);
    press(m_r, true);
    press(m_r, false);
    press(m_alt, false);
    press(m_control, false);
    const TimePoint now = std::chrono::steady_clock::now();
    xcb_flush(m_connection);
    return now;
}

void MenuProbe::pressEscape() {
    press(m_escape, true);
    press(m_escape, false);
    xcb_flush(m_connection);
}

void MenuProbe::click(unsigned window, int button) {
    const auto geometry =
        own(xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr));
    const auto position = own(xcb_translate_coordinates_reply(
        m_connection, xcb_translate_coordinates(m_connection, window, m_root, 0, 0), nullptr));
    if (!geometry || !position)
        return;
    xcb_test_fake_input(m_connection, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, m_root,
                        int16_t(position->dst_x + geometry->width / 2),
                        int16_t(position->dst_y + geometry->height / 2), 0);
    xcb_test_fake_input(m_connection, XCB_BUTTON_PRESS, uint8_t(button), XCB_CURRENT_TIME, XCB_NONE,
                        0, 0, 0);
    xcb_test_fake_input(m_connection, XCB_BUTTON_RELEASE, uint8_t(button), XCB_CURRENT_TIME,
                        XCB_NONE, 0, 0, 0);
    xcb_flush(m_connection);
}

void MenuProbe::drain() {
    xcb_flush(m_connection);
    while (xcb_generic_event_t* raw = xcb_poll_for_event(m_connection)) {
        const auto event = own(raw);
        track(raw);
    }
    xcb_flush(m_connection);
}

bool MenuProbe::track(const void* raw) {
    const auto* event = static_cast<const xcb_generic_event_t*>(raw);
    switch (event->response_type & 0x7f) {
    case XCB_CREATE_NOTIFY:
        watch(static_cast<const xcb_create_notify_event_t*>(raw)->window);
        return true;
    case XCB_DESTROY_NOTIFY:
        // Its damage went with it; the X server may give its id to another program's window.
        m_damage.erase(static_cast<const xcb_destroy_notify_event_t*>(raw)->window);
        return true;
    default:
        return false;
    }
}

void MenuProbe::watch(unsigned window) {
    if (m_damage.count(window))
        return;
    const xcb_damage_damage_t damage = xcb_generate_id(m_connection);
    xcb_damage_create(m_connection, damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    m_damage.emplace(window, damage);
}

bool MenuProbe::belongsTo(unsigned window, pid_t pid) {
    const auto reply = own(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, m_pidAtom, XCB_ATOM_CARDINAL, 0, 1),
        nullptr));
    return reply && xcb_get_property_value_length(reply.get()) == 4 &&
           *static_cast<const uint32_t*>(xcb_get_property_value(reply.get())) == uint32_t(pid);
}

void* MenuProbe::nextEvent(TimePoint deadline) {
    for (;;) {
        if (xcb_generic_event_t* event = xcb_poll_for_event(m_connection))
            return event;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || xcb_connection_has_error(m_connection))
            return nullptr;
        pollfd fd{xcb_get_file_descriptor(m_connection), POLLIN, 0};
        poll(&fd, 1, int(left.count()));
    }
}

std::optional<MenuProbe::Shown> MenuProbe::waitForMenu(pid_t pid,
                                                       std::chrono::milliseconds timeout) {
    const TimePoint deadline = std::chrono::steady_clock::now() + timeout;
    std::optional<TimePoint> mapped;
    for (;;) {
        const auto event = own(static_cast<xcb_generic_event_t*>(nextEvent(deadline)));
        if (!event)
            return std::nullopt;
        const TimePoint seen = std::chrono::steady_clock::now();
        const uint8_t type = event->response_type & 0x7f;
        // Watched from its creation, so that no frame drawn before this sees the map is lost.
        if (track(event.get())) {
            xcb_flush(m_connection);
        } else if (type == XCB_MAP_NOTIFY && !mapped) {
            const auto* map = reinterpret_cast<xcb_map_notify_event_t*>(event.get());
            if (!map->override_redirect || !belongsTo(map->window, pid))
                continue;
            m_menu = map->window;
            mapped = seen;
            watch(m_menu);
            xcb_flush(m_connection);
        } else if (type == m_damageEvent && mapped) {
            const auto* damage = reinterpret_cast<xcb_damage_notify_event_t*>(event.get());
            if (damage->drawable != m_menu)
                continue;
            // Emptied, so that the next frame after the next mapping is reported again.
            xcb_damage_subtract(m_connection, damage->damage, XCB_NONE, XCB_NONE);
            xcb_flush(m_connection);
            return Shown{*mapped, seen};
        }
    }
}

bool MenuProbe::waitForMenuClosed(std::chrono::milliseconds timeout) {
    const TimePoint deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const auto event = own(static_cast<xcb_generic_event_t*>(nextEvent(deadline)));
        if (!event)
            return false;
        const uint8_t type = event->response_type & 0x7f;
        if (track(event.get())) {
            xcb_flush(m_connection);
        } else if (type == XCB_UNMAP_NOTIFY &&
                   reinterpret_cast<xcb_unmap_notify_event_t*>(event.get())->window == m_menu) {
            // Whatever was drawn into the closed menu is no news.
            if (const auto damage = m_damage.find(m_menu); damage != m_damage.end())
                xcb_damage_subtract(m_connection, damage->second, XCB_NONE, XCB_NONE);
            xcb_flush(m_connection);
            return true;
        }
    }
}
