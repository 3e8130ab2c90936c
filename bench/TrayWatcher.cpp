#include "TrayWatcher.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>

namespace {

template <typename Reply> using Owned = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply> Owned<Reply> own(Reply* reply) {
    return Owned<Reply>(reply, &std::free);
}

} // namespace

TrayWatcher::TrayWatcher() {
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection))
        return;
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    // The tray host takes an icon window away from the root window: the root reports that.
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(m_connection, m_root, XCB_CW_EVENT_MASK, &mask);
    const char name[] = "_NET_WM_PID";
    const auto atom = own(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, std::strlen(name), name), nullptr));
    m_pidAtom = atom ? atom->atom : 0;
    xcb_flush(m_connection);
}

TrayWatcher::~TrayWatcher() {
    xcb_disconnect(m_connection);
}

bool TrayWatcher::isConnected() const {
    return !xcb_connection_has_error(m_connection) && m_pidAtom != 0;
}

void TrayWatcher::reset() {
    xcb_flush(m_connection);
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection))
        std::free(event);
}

bool TrayWatcher::belongsTo(unsigned window, pid_t pid) {
    const auto reply = own(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, m_pidAtom, XCB_ATOM_CARDINAL, 0, 1),
        nullptr));
    return reply && xcb_get_property_value_length(reply.get()) == 4 &&
           *static_cast<const uint32_t*>(xcb_get_property_value(reply.get())) == uint32_t(pid);
}

bool TrayWatcher::isViewable(unsigned window) {
    const auto reply = own(xcb_get_window_attributes_reply(
        m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
    return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
}

std::optional<TrayWatcher::TimePoint> TrayWatcher::waitForIcon(pid_t pid,
                                                               std::chrono::milliseconds timeout) {
    const TimePoint deadline = std::chrono::steady_clock::now() + timeout;
    unsigned icon = 0;
    for (;;) {
        xcb_generic_event_t* raw = xcb_poll_for_event(m_connection);
        if (!raw) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || xcb_connection_has_error(m_connection))
                return std::nullopt;
            pollfd fd{xcb_get_file_descriptor(m_connection), POLLIN, 0};
            poll(&fd, 1, int(left.count()));
            continue;
        }
        const auto event = own(raw);
        const TimePoint seen = std::chrono::steady_clock::now();
        const uint8_t type = event->response_type & 0x7f;
        if (type == XCB_REPARENT_NOTIFY && icon == 0) {
            const auto* reparent = reinterpret_cast<xcb_reparent_notify_event_t*>(raw);
            if (reparent->parent == m_root || !belongsTo(reparent->window, pid))
                continue;
            icon = reparent->window;
            m_icon = icon;
            // From now on the icon reports its own mapping; it may already be shown.
            const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
            xcb_change_window_attributes(m_connection, icon, XCB_CW_EVENT_MASK, &mask);
            if (isViewable(icon))
                return seen;
        } else if (type == XCB_MAP_NOTIFY && icon != 0) {
            const auto* map = reinterpret_cast<xcb_map_notify_event_t*>(raw);
            if (map->window == icon && isViewable(icon))
                return seen;
        }
    }
}
