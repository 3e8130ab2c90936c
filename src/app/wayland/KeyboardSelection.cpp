#include "app/wayland/KeyboardSelection.h"

#include "app/wayland/SelectionWriter.h"

#include <QGuiApplication>
#include <qpa/qplatformnativeinterface.h>

#include <wayland-client.h>

#include <algorithm>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace {

const char* const textTypes[] = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING", "TEXT",
                                 "STRING"};

// Serials wrap around: the newer of two is the one less than half the range ahead.
quint32 newer(quint32 a, quint32 b) {
    return static_cast<qint32>(a - b) > 0 ? a : b;
}

void* qtResource(const char* name) {
    QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
    return native ? native->nativeResourceForIntegration(name) : nullptr;
}

} // namespace

struct KeyboardSelectionListeners {
    using Self = KeyboardSelection;

    static void global(void* data, wl_registry* registry, uint32_t name, const char* interface,
                       uint32_t version) {
        auto* self = static_cast<Self*>(data);
        if (std::strcmp(interface, wl_seat_interface.name) == 0 && !self->m_seat) {
            // Version 5: a keyboard that can be released.
            self->m_seat = static_cast<wl_seat*>(
                wl_registry_bind(registry, name, &wl_seat_interface, std::min(version, 5u)));
            wl_seat_add_listener(self->m_seat, &seat, self);
        } else if (std::strcmp(interface, wl_data_device_manager_interface.name) == 0 &&
                   !self->m_manager) {
            self->m_manager = static_cast<wl_data_device_manager*>(wl_registry_bind(
                registry, name, &wl_data_device_manager_interface, std::min(version, 3u)));
        }
    }
    static void globalRemove(void*, wl_registry*, uint32_t) {}

    static void capabilities(void* data, wl_seat*, uint32_t capabilities) {
        static_cast<Self*>(data)->keyboardCapability(capabilities & WL_SEAT_CAPABILITY_KEYBOARD);
    }
    static void seatName(void*, wl_seat*, const char*) {}

    static void keymap(void*, wl_keyboard*, uint32_t, int32_t fd, uint32_t) { ::close(fd); }
    static void enter(void* data, wl_keyboard*, uint32_t serial, wl_surface* surface, wl_array*) {
        auto* self = static_cast<Self*>(data);
        self->m_focus = surface;
        self->m_serial = serial;
        self->bindDevice();
        // Qt's share of the same events (the clipboard's offer) is taken in the same dispatch.
        QMetaObject::invokeMethod(self, &Self::keyboardEntered, Qt::QueuedConnection);
    }
    static void leave(void* data, wl_keyboard*, uint32_t, wl_surface*) {
        static_cast<Self*>(data)->m_focus = nullptr;
    }
    static void key(void* data, wl_keyboard*, uint32_t serial, uint32_t, uint32_t, uint32_t) {
        static_cast<Self*>(data)->m_serial = serial;
    }
    static void modifiers(void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void repeatInfo(void*, wl_keyboard*, int32_t, int32_t) {}

    // The device's offers are Qt's to read; this one only sees that the clipboard changed.
    static void dataOffer(void*, wl_data_device*, wl_data_offer*) {}
    static void dragEnter(void*, wl_data_device*, uint32_t, wl_surface*, wl_fixed_t, wl_fixed_t,
                          wl_data_offer* offer) {
        if (offer)
            wl_data_offer_destroy(offer);
    }
    static void dragLeave(void*, wl_data_device*) {}
    static void dragMotion(void*, wl_data_device*, uint32_t, wl_fixed_t, wl_fixed_t) {}
    static void drop(void*, wl_data_device*) {}
    static void selection(void* data, wl_data_device*, wl_data_offer* offer) {
        if (!offer)
            return;
        wl_data_offer_destroy(offer);
        static_cast<Self*>(data)->m_selectionSeen = true;
    }

    static void target(void*, wl_data_source*, const char*) {}
    static void send(void* data, wl_data_source*, const char*, int32_t fd) {
        static_cast<Self*>(data)->send(fd);
    }
    static void cancelled(void* data, wl_data_source* source) {
        auto* self = static_cast<Self*>(data);
        wl_data_source_destroy(source);
        if (self->m_source == source) {
            self->m_source = nullptr;
            self->m_sourceText.clear();
            if (self->m_check)
                self->settle(false);
        }
    }
    static void dropPerformed(void*, wl_data_source*) {}
    static void dragFinished(void*, wl_data_source*) {}
    static void action(void*, wl_data_source*, uint32_t) {}

    static void checked(void* data, wl_callback*, uint32_t) {
        auto* self = static_cast<Self*>(data);
        self->settle(self->m_source && self->m_selectionSeen);
    }

    static const wl_registry_listener registry;
    static const wl_seat_listener seat;
    static const wl_keyboard_listener keyboard;
    static const wl_data_device_listener device;
    static const wl_data_source_listener source;
    static const wl_callback_listener check;
};

const wl_registry_listener KeyboardSelectionListeners::registry = {
    &KeyboardSelectionListeners::global, &KeyboardSelectionListeners::globalRemove};
const wl_seat_listener KeyboardSelectionListeners::seat = {
    &KeyboardSelectionListeners::capabilities, &KeyboardSelectionListeners::seatName};
const wl_keyboard_listener KeyboardSelectionListeners::keyboard = {
    &KeyboardSelectionListeners::keymap,    &KeyboardSelectionListeners::enter,
    &KeyboardSelectionListeners::leave,     &KeyboardSelectionListeners::key,
    &KeyboardSelectionListeners::modifiers, &KeyboardSelectionListeners::repeatInfo};
const wl_data_device_listener KeyboardSelectionListeners::device = {
    &KeyboardSelectionListeners::dataOffer, &KeyboardSelectionListeners::dragEnter,
    &KeyboardSelectionListeners::dragLeave, &KeyboardSelectionListeners::dragMotion,
    &KeyboardSelectionListeners::drop,      &KeyboardSelectionListeners::selection};
const wl_data_source_listener KeyboardSelectionListeners::source = {
    &KeyboardSelectionListeners::target,       &KeyboardSelectionListeners::send,
    &KeyboardSelectionListeners::cancelled,    &KeyboardSelectionListeners::dropPerformed,
    &KeyboardSelectionListeners::dragFinished, &KeyboardSelectionListeners::action};
const wl_callback_listener KeyboardSelectionListeners::check = {
    &KeyboardSelectionListeners::checked};

KeyboardSelection::KeyboardSelection()
    : m_display(static_cast<wl_display*>(qtResource("wl_display"))) {
    if (!m_display)
        return;
    // On Qt's event queue: Qt reads and dispatches the events, on this thread.
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &KeyboardSelectionListeners::registry, this);
    wl_display_flush(m_display);
}

KeyboardSelection::~KeyboardSelection() {
    // Without Qt's platform the connection is gone, and the objects with it.
    if (QGuiApplication::platformNativeInterface())
        destroyObjects();
}

void KeyboardSelection::bindDevice() {
    // Made while this program has the keyboard: mutter keeps one data device per program among
    // those without the keyboard, and one made then would take the place of Qt's, whose
    // clipboard would never hear of a change again. With the keyboard Qt's is set apart, and
    // both are kept from then on (meta-wayland-data-device.c, get_data_device).
    if (!m_seat || !m_manager || m_device || !m_focus)
        return;
    m_device = wl_data_device_manager_get_data_device(m_manager, m_seat);
    wl_data_device_add_listener(m_device, &KeyboardSelectionListeners::device, this);
    wl_display_flush(m_display);
}

void KeyboardSelection::keyboardCapability(bool present) {
    if (present && !m_keyboard) {
        m_keyboard = wl_seat_get_keyboard(m_seat);
        wl_keyboard_add_listener(m_keyboard, &KeyboardSelectionListeners::keyboard, this);
    } else if (!present && m_keyboard) {
        if (wl_keyboard_get_version(m_keyboard) >= WL_KEYBOARD_RELEASE_SINCE_VERSION)
            wl_keyboard_release(m_keyboard);
        else
            wl_keyboard_destroy(m_keyboard);
        m_keyboard = nullptr;
        m_focus = nullptr;
    }
}

void KeyboardSelection::setText(const QString& text) {
    if (!m_device || !m_focus) {
        QMetaObject::invokeMethod(this, &KeyboardSelection::refused, Qt::QueuedConnection);
        return;
    }
    wl_data_source* source = wl_data_device_manager_create_data_source(m_manager);
    wl_data_source_add_listener(source, &KeyboardSelectionListeners::source, this);
    for (const char* type : textTypes)
        wl_data_source_offer(source, type);
    // A pointer button pressed on a menu entry may be newer than the keyboard's last serial.
    const auto qtSerial = static_cast<quint32>(reinterpret_cast<quintptr>(qtResource("serial")));
    wl_data_device_set_selection(m_device, source, newer(m_serial, qtSerial));
    // The previous source is cancelled by the compositor and destroyed then.
    m_source = source;
    m_sourceText = text.toUtf8();
    // The compositor announces the new clipboard to the program with the keyboard before it
    // answers the round trip; without that announcement it ignored the copy.
    if (m_check)
        wl_callback_destroy(m_check);
    m_selectionSeen = false;
    m_check = wl_display_sync(m_display);
    wl_callback_add_listener(m_check, &KeyboardSelectionListeners::check, this);
    wl_display_flush(m_display);
}

std::optional<QString> KeyboardSelection::ownText() const {
    if (!m_source)
        return std::nullopt;
    return QString::fromUtf8(m_sourceText);
}

void KeyboardSelection::settle(bool accepted) {
    if (m_check)
        wl_callback_destroy(std::exchange(m_check, nullptr));
    if (accepted)
        Q_EMIT confirmed();
    else
        Q_EMIT refused();
}

void KeyboardSelection::send(int fd) const {
    SelectionWriter::writeAndClose(fd, m_sourceText);
}

void KeyboardSelection::destroyObjects() {
    if (m_check)
        wl_callback_destroy(std::exchange(m_check, nullptr));
    if (m_source)
        wl_data_source_destroy(std::exchange(m_source, nullptr));
    if (m_device) {
        if (wl_data_device_get_version(m_device) >= WL_DATA_DEVICE_RELEASE_SINCE_VERSION)
            wl_data_device_release(std::exchange(m_device, nullptr));
        else
            wl_data_device_destroy(std::exchange(m_device, nullptr));
    }
    keyboardCapability(false);
    if (m_manager)
        wl_data_device_manager_destroy(std::exchange(m_manager, nullptr));
    if (m_seat) {
        if (wl_seat_get_version(m_seat) >= WL_SEAT_RELEASE_SINCE_VERSION)
            wl_seat_release(std::exchange(m_seat, nullptr));
        else
            wl_seat_destroy(std::exchange(m_seat, nullptr));
    }
    if (m_registry)
        wl_registry_destroy(std::exchange(m_registry, nullptr));
    if (m_display)
        wl_display_flush(m_display);
}
