#include "app/clipboard/X11ClipboardBackend.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>

namespace {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

} // namespace

X11ClipboardBackend::X11ClipboardBackend(std::chrono::milliseconds answerTimeout)
    : m_answerTimeout(answerTimeout) {}

X11ClipboardBackend::~X11ClipboardBackend() {
    disconnectFromServer();
}

std::optional<QString> X11ClipboardBackend::text() {
    // Qt answers for this program's own copy, on the event loop that waits here.
    QClipboard* clipboard = QGuiApplication::clipboard();
    if (clipboard->ownsClipboard()) {
        const QMimeData* data = clipboard->mimeData();
        return data ? data->text() : QString();
    }
    if (!connectToServer())
        return std::nullopt;
    const Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_clipboard), nullptr));
    if (!owner) {
        disconnectFromServer();
        return std::nullopt;
    }
    if (owner->owner == XCB_NONE)
        return QString();
    // Plain text, as UTF-8 and else as Latin-1 (ICCCM's STRING) from older programs. Read by
    // the type the owner gives: some answer every request with what they hold.
    for (const xcb_atom_t target : {m_utf8String, xcb_atom_t(XCB_ATOM_STRING)}) {
        const Answer answer = convert(target);
        if (answer.kind == Answer::Kind::Silent)
            return std::nullopt;
        if (answer.kind == Answer::Kind::Refused)
            continue;
        if (answer.type == m_utf8String)
            return QString::fromUtf8(answer.bytes);
        if (answer.type == XCB_ATOM_STRING)
            return QString::fromLatin1(answer.bytes);
    }
    return QString();
}

bool X11ClipboardBackend::connectToServer() {
    if (m_connection)
        return true;
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection)) {
        disconnectFromServer();
        return false;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    m_window = xcb_generate_id(m_connection);
    // Never shown; it receives the answers, and sees the pieces of a large one arrive.
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screen->root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    const std::array<const char*, 4> names{"CLIPBOARD", "UTF8_STRING", "INCR",
                                           "QUILLMAR_CLIPBOARD"};
    std::array<xcb_intern_atom_cookie_t, 4> cookies{};
    for (std::size_t i = 0; i < names.size(); ++i)
        cookies[i] =
            xcb_intern_atom(m_connection, 0, std::uint16_t(std::strlen(names[i])), names[i]);
    std::array<xcb_atom_t, 4> atoms{};
    for (std::size_t i = 0; i < cookies.size(); ++i) {
        const Reply<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(m_connection, cookies[i], nullptr));
        atoms[i] = reply ? reply->atom : XCB_NONE;
    }
    if (std::find(atoms.cbegin(), atoms.cend(), XCB_NONE) != atoms.cend()) {
        disconnectFromServer();
        return false;
    }
    m_clipboard = atoms[0];
    m_utf8String = atoms[1];
    m_incr = atoms[2];
    m_property = atoms[3];
    return true;
}

void X11ClipboardBackend::disconnectFromServer() {
    if (m_connection)
        xcb_disconnect(m_connection);
    m_connection = nullptr;
}

X11ClipboardBackend::Answer X11ClipboardBackend::convert(std::uint32_t target) {
    // An answer that came after its time is not taken for this one.
    while (xcb_generic_event_t* stale = xcb_poll_for_event(m_connection))
        std::free(stale);
    xcb_delete_property(m_connection, m_window, m_property);
    xcb_convert_selection(m_connection, m_window, m_clipboard, target, m_property,
                          XCB_CURRENT_TIME);
    xcb_flush(m_connection);
    const Reply<xcb_selection_notify_event_t> notify(
        static_cast<xcb_selection_notify_event_t*>(waitFor(XCB_SELECTION_NOTIFY)));
    if (!notify)
        return {Answer::Kind::Silent, XCB_NONE, {}};
    if (notify->property == XCB_NONE)
        return {Answer::Kind::Refused, XCB_NONE, {}};
    Answer answer{Answer::Kind::Given, XCB_NONE, {}};
    std::optional<QByteArray> value = takeProperty(&answer.type);
    // Too large for one request, the value comes in pieces, each after the previous one was
    // taken (and deleted).
    if (value && answer.type == m_incr)
        value = takePieces(&answer.type);
    if (!value)
        return {Answer::Kind::Silent, XCB_NONE, {}};
    answer.bytes = *value;
    return answer;
}

std::optional<QByteArray> X11ClipboardBackend::takeProperty(std::uint32_t* type) {
    QByteArray value;
    std::uint32_t offset = 0;
    for (;;) {
        // Read in parts of a megabyte, deleted once read whole.
        constexpr std::uint32_t partLength = 1 << 18; // in 32-bit units
        const Reply<xcb_get_property_reply_t> reply(
            xcb_get_property_reply(m_connection,
                                   xcb_get_property(m_connection, 0, m_window, m_property,
                                                    XCB_GET_PROPERTY_TYPE_ANY, offset, partLength),
                                   nullptr));
        if (!reply) {
            disconnectFromServer();
            return std::nullopt;
        }
        *type = reply->type;
        const int length = xcb_get_property_value_length(reply.get());
        value.append(static_cast<const char*>(xcb_get_property_value(reply.get())), length);
        offset += std::uint32_t(length) / 4;
        if (reply->bytes_after == 0)
            break;
    }
    xcb_delete_property(m_connection, m_window, m_property);
    xcb_flush(m_connection);
    return value;
}

std::optional<QByteArray> X11ClipboardBackend::takePieces(std::uint32_t* type) {
    QByteArray whole;
    for (;;) {
        const Reply<xcb_property_notify_event_t> written(
            static_cast<xcb_property_notify_event_t*>(waitFor(XCB_PROPERTY_NOTIFY)));
        if (!written)
            return std::nullopt;
        std::uint32_t pieceType = XCB_NONE;
        const std::optional<QByteArray> piece = takeProperty(&pieceType);
        if (!piece)
            return std::nullopt;
        // An empty piece ends the value.
        if (piece->isEmpty())
            return whole;
        *type = pieceType;
        whole.append(*piece);
    }
}

void* X11ClipboardBackend::waitFor(std::uint8_t type) {
    const auto deadline = std::chrono::steady_clock::now() + m_answerTimeout;
    for (;;) {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
            const std::uint8_t eventType = event->response_type & 0x7f;
            if (eventType == XCB_SELECTION_NOTIFY && eventType == type) {
                const auto* notify = reinterpret_cast<xcb_selection_notify_event_t*>(event);
                if (notify->requestor == m_window && notify->selection == m_clipboard)
                    return event;
            } else if (eventType == XCB_PROPERTY_NOTIFY && eventType == type) {
                const auto* property = reinterpret_cast<xcb_property_notify_event_t*>(event);
                if (property->window == m_window && property->atom == m_property &&
                    property->state == XCB_PROPERTY_NEW_VALUE)
                    return event;
            }
            std::free(event);
        }
        if (xcb_connection_has_error(m_connection)) {
            disconnectFromServer();
            return nullptr;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return nullptr;
        pollfd descriptor{xcb_get_file_descriptor(m_connection), POLLIN, 0};
        poll(&descriptor, 1, int(left.count()));
    }
}
