#include "X11Screen.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename T> using Reply = std::unique_ptr<T, Free>;

struct Connection {
    Connection()
        : connection(xcb_connect(nullptr, nullptr)) {}
    ~Connection() { xcb_disconnect(connection); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool ok() const { return xcb_connection_has_error(connection) == 0; }
    xcb_screen_t* screen() const {
        return xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    }
    xcb_atom_t atom(const char* name) const {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name),
            nullptr));
        return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    }

    xcb_connection_t* connection;
};

} // namespace

QList<QRect> X11Screen::menuWindows(const QStringList& classes) {
    const Connection x;
    if (!x.ok())
        return {};
    const xcb_window_t root = x.screen()->root;
    // Menus are popups of their own: override-redirect windows, children of the root, that say
    // they are menus.
    const xcb_atom_t type = x.atom("_NET_WM_WINDOW_TYPE");
    const xcb_atom_t popupMenu = x.atom("_NET_WM_WINDOW_TYPE_POPUP_MENU");
    const xcb_atom_t dropdownMenu = x.atom("_NET_WM_WINDOW_TYPE_DROPDOWN_MENU");
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(x.connection, xcb_query_tree(x.connection, root), nullptr));
    if (!tree)
        return {};
    QList<QRect> menus;
    const xcb_window_t* windows = xcb_query_tree_children(tree.get());
    // The tree lists the root's children from the bottom of the stack to its top.
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        const xcb_window_t window = windows[i];
        const Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
            x.connection, xcb_get_window_attributes(x.connection, window), nullptr));
        if (!attributes || !attributes->override_redirect ||
            attributes->map_state != XCB_MAP_STATE_VIEWABLE)
            continue;
        const Reply<xcb_get_property_reply_t> types(xcb_get_property_reply(
            x.connection, xcb_get_property(x.connection, 0, window, type, XCB_ATOM_ATOM, 0, 32),
            nullptr));
        bool menu = false;
        if (types && types->format == 32) {
            const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(types.get()));
            for (int t = 0; t < xcb_get_property_value_length(types.get()) / 4; ++t)
                menu = menu || atoms[t] == popupMenu || atoms[t] == dropdownMenu;
        }
        if (!menu)
            continue;
        // WM_CLASS: the instance's name and the class's, each ended by a zero byte.
        const Reply<xcb_get_property_reply_t> wmClass(xcb_get_property_reply(
            x.connection,
            xcb_get_property(x.connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256),
            nullptr));
        if (!wmClass)
            continue;
        const QList<QByteArray> names =
            QByteArray(static_cast<const char*>(xcb_get_property_value(wmClass.get())),
                       xcb_get_property_value_length(wmClass.get()))
                .split('\0');
        if (std::none_of(names.cbegin(), names.cend(), [&classes](const QByteArray& name) {
                return classes.contains(QString::fromLocal8Bit(name));
            }))
            continue;
        const Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(x.connection, xcb_get_geometry(x.connection, window), nullptr));
        if (geometry)
            menus.append(QRect(geometry->x + geometry->border_width,
                               geometry->y + geometry->border_width, geometry->width,
                               geometry->height));
    }
    return menus;
}

QImage X11Screen::grab(QRect part) {
    const Connection x;
    if (!x.ok())
        return {};
    const xcb_screen_t* screen = x.screen();
    part &= QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
    // The screen's pixels as 32 bits each, blue green red and an unused byte: Qt's RGB32.
    if (part.isEmpty() || screen->root_depth != 24)
        return {};
    const Reply<xcb_get_image_reply_t> image(xcb_get_image_reply(
        x.connection,
        xcb_get_image(x.connection, XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, int16_t(part.x()),
                      int16_t(part.y()), uint16_t(part.width()), uint16_t(part.height()), ~0U),
        nullptr));
    const qsizetype bytes = qsizetype(part.width()) * part.height() * 4;
    if (!image || xcb_get_image_data_length(image.get()) != bytes)
        return {};
    QImage pixels(part.size(), QImage::Format_RGB32);
    std::memcpy(pixels.bits(), xcb_get_image_data(image.get()), size_t(bytes));
    return pixels;
}
