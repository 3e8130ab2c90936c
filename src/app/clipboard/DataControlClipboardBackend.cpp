#include "app/clipboard/DataControlClipboardBackend.h"

#include "app/wayland/SelectionWriter.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QClipboard>
#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QSocketNotifier>

#include <wayland-client.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

// The plain text types programs offer, the best first.
const QStringList textTypes = {QStringLiteral("text/plain;charset=utf-8"),
                               QStringLiteral("UTF8_STRING"), QStringLiteral("text/plain"),
                               QStringLiteral("STRING"), QStringLiteral("TEXT")};
// A program that never answers must not hang the menu; text beyond this is not a copied address.
constexpr int readTimeoutMs = 1000;
constexpr qsizetype readLimit = 4 * 1024 * 1024;

} // namespace

struct DataControlListeners {
    using Backend = DataControlClipboardBackend;

    static void global(void* data, wl_registry* registry, uint32_t name, const char* interface,
                       uint32_t version) {
        auto* self = static_cast<Backend*>(data);
        if (std::strcmp(interface, wl_seat_interface.name) == 0 && !self->m_seat) {
            self->m_seat =
                static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
        } else if (std::strcmp(interface, zwlr_data_control_manager_v1_interface.name) == 0) {
            // Version 1: the clipboard only, not the primary selection.
            Q_UNUSED(version);
            self->m_manager = static_cast<zwlr_data_control_manager_v1*>(
                wl_registry_bind(registry, name, &zwlr_data_control_manager_v1_interface, 1));
        }
    }

    static void globalRemove(void*, wl_registry*, uint32_t) {}

    static void dataOffer(void* data, zwlr_data_control_device_v1*,
                          zwlr_data_control_offer_v1* offer) {
        auto* self = static_cast<Backend*>(data);
        self->m_offerTypes.insert(offer, {});
        zwlr_data_control_offer_v1_add_listener(offer, &DataControlListeners::offer, self);
    }

    static void selection(void* data, zwlr_data_control_device_v1*,
                          zwlr_data_control_offer_v1* offer) {
        auto* self = static_cast<Backend*>(data);
        if (self->m_selection && self->m_selection != offer) {
            self->m_offerTypes.remove(self->m_selection);
            zwlr_data_control_offer_v1_destroy(self->m_selection);
        }
        self->m_selection = offer;
        // Told from the event loop: this event may come in the middle of a read.
        QMetaObject::invokeMethod(self, &ClipboardBackend::changed, Qt::QueuedConnection);
    }

    static void finished(void* data, zwlr_data_control_device_v1*) {
        // The seat went: nothing more can be read or set.
        static_cast<Backend*>(data)->disconnectFromCompositor();
    }

    static void primarySelection(void* data, zwlr_data_control_device_v1*,
                                 zwlr_data_control_offer_v1* offer) {
        auto* self = static_cast<Backend*>(data);
        if (offer) {
            self->m_offerTypes.remove(offer);
            zwlr_data_control_offer_v1_destroy(offer);
        }
    }

    static void offerType(void* data, zwlr_data_control_offer_v1* offer, const char* type) {
        auto* self = static_cast<Backend*>(data);
        const auto found = self->m_offerTypes.find(offer);
        if (found != self->m_offerTypes.end())
            found->append(QString::fromUtf8(type));
    }

    static void sendRequested(void* data, zwlr_data_control_source_v1*, const char*, int32_t fd) {
        static_cast<Backend*>(data)->send(fd);
    }

    static void cancelled(void* data, zwlr_data_control_source_v1* source) {
        auto* self = static_cast<Backend*>(data);
        zwlr_data_control_source_v1_destroy(source);
        if (self->m_source == source) {
            self->m_source = nullptr;
            self->m_sourceText.clear();
        }
    }

    static const wl_registry_listener registry;
    static const zwlr_data_control_device_v1_listener device;
    static const zwlr_data_control_offer_v1_listener offer;
    static const zwlr_data_control_source_v1_listener source;
};

const wl_registry_listener DataControlListeners::registry = {&DataControlListeners::global,
                                                             &DataControlListeners::globalRemove};
const zwlr_data_control_device_v1_listener DataControlListeners::device = {
    &DataControlListeners::dataOffer, &DataControlListeners::selection,
    &DataControlListeners::finished, &DataControlListeners::primarySelection};
const zwlr_data_control_offer_v1_listener DataControlListeners::offer = {
    &DataControlListeners::offerType};
const zwlr_data_control_source_v1_listener DataControlListeners::source = {
    &DataControlListeners::sendRequested, &DataControlListeners::cancelled};

std::unique_ptr<DataControlClipboardBackend> DataControlClipboardBackend::connectToCompositor() {
    wl_display* display = wl_display_connect(nullptr);
    if (!display)
        return nullptr;
    std::unique_ptr<DataControlClipboardBackend> backend(new DataControlClipboardBackend(display));
    if (!backend->bindGlobals())
        return nullptr;
    return backend;
}

DataControlClipboardBackend::DataControlClipboardBackend(wl_display* display)
    : m_display(display) {}

DataControlClipboardBackend::~DataControlClipboardBackend() {
    disconnectFromCompositor();
}

bool DataControlClipboardBackend::bindGlobals() {
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &DataControlListeners::registry, this);
    if (wl_display_roundtrip(m_display) < 0 || !m_manager || !m_seat)
        return false;
    m_device = zwlr_data_control_manager_v1_get_data_device(m_manager, m_seat);
    zwlr_data_control_device_v1_add_listener(m_device, &DataControlListeners::device, this);
    // The current selection arrives at once.
    if (wl_display_roundtrip(m_display) < 0)
        return false;
    // A reader that goes away before all is written must not end this program.
    std::signal(SIGPIPE, SIG_IGN);
    m_notifier =
        std::make_unique<QSocketNotifier>(wl_display_get_fd(m_display), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this,
            &DataControlClipboardBackend::dispatch);
    return true;
}

void DataControlClipboardBackend::dispatch() {
    if (!m_display)
        return;
    // Reads only what is there: a read of the selection may have taken the events already.
    while (wl_display_prepare_read(m_display) != 0) {
        if (wl_display_dispatch_pending(m_display) < 0) {
            disconnectFromCompositor();
            return;
        }
    }
    pollfd readable{wl_display_get_fd(m_display), POLLIN, 0};
    if (poll(&readable, 1, 0) > 0) {
        if (wl_display_read_events(m_display) < 0) {
            disconnectFromCompositor();
            return;
        }
    } else {
        wl_display_cancel_read(m_display);
    }
    if (wl_display_dispatch_pending(m_display) < 0)
        disconnectFromCompositor();
    else
        flush();
}

void DataControlClipboardBackend::flush() {
    if (m_display && wl_display_flush(m_display) < 0 && errno != EAGAIN)
        disconnectFromCompositor();
}

void DataControlClipboardBackend::disconnectFromCompositor() {
    if (!m_display)
        return;
    m_notifier.reset();
    for (auto offer = m_offerTypes.keyBegin(); offer != m_offerTypes.keyEnd(); ++offer) {
        if (*offer != m_selection)
            zwlr_data_control_offer_v1_destroy(*offer);
    }
    m_offerTypes.clear();
    if (m_selection)
        zwlr_data_control_offer_v1_destroy(std::exchange(m_selection, nullptr));
    if (m_source)
        zwlr_data_control_source_v1_destroy(std::exchange(m_source, nullptr));
    if (m_device)
        zwlr_data_control_device_v1_destroy(std::exchange(m_device, nullptr));
    if (m_manager)
        zwlr_data_control_manager_v1_destroy(std::exchange(m_manager, nullptr));
    if (m_seat)
        wl_seat_destroy(std::exchange(m_seat, nullptr));
    if (m_registry)
        wl_registry_destroy(std::exchange(m_registry, nullptr));
    wl_display_disconnect(std::exchange(m_display, nullptr));
}

void DataControlClipboardBackend::setText(const QString& text) {
    if (!m_display)
        return;
    zwlr_data_control_source_v1* source =
        zwlr_data_control_manager_v1_create_data_source(m_manager);
    zwlr_data_control_source_v1_add_listener(source, &DataControlListeners::source, this);
    for (const QString& type : textTypes)
        zwlr_data_control_source_v1_offer(source, type.toUtf8().constData());
    zwlr_data_control_device_v1_set_selection(m_device, source);
    // The previous source is cancelled by the compositor and destroyed then.
    m_source = source;
    m_sourceText = text.toUtf8();
    flush();
}

void DataControlClipboardBackend::send(int fd) const {
    SelectionWriter::writeAndClose(fd, m_sourceText);
}

std::optional<QString> DataControlClipboardBackend::text() {
    if (!m_display)
        return std::nullopt;
    // Brings the newest selection (and the end of this program's own).
    if (wl_display_roundtrip(m_display) < 0) {
        disconnectFromCompositor();
        return std::nullopt;
    }
    if (m_source)
        return QString::fromUtf8(m_sourceText);
    // Qt's own clipboard holds it (text copied in the settings window): Qt would answer a read
    // only from the event loop, which waits here.
    if (QGuiApplication::clipboard()->ownsClipboard()) {
        QString subtype = QStringLiteral("plain");
        return QGuiApplication::clipboard()->text(subtype);
    }
    if (!m_selection)
        return QString();
    const QStringList offered = m_offerTypes.value(m_selection);
    for (const QString& type : textTypes) {
        if (offered.contains(type))
            return receive(m_selection, type);
    }
    return QString();
}

std::optional<QString> DataControlClipboardBackend::receive(zwlr_data_control_offer_v1* offer,
                                                            const QString& type) {
    std::array<int, 2> pipe{-1, -1};
    if (pipe2(pipe.data(), O_CLOEXEC) != 0)
        return std::nullopt;
    zwlr_data_control_offer_v1_receive(offer, type.toUtf8().constData(), pipe[1]);
    flush();
    ::close(pipe[1]);
    QByteArray data;
    QDeadlineTimer deadline(readTimeoutMs);
    bool complete = false;
    while (!deadline.hasExpired() && data.size() < readLimit) {
        pollfd readable{pipe[0], POLLIN, 0};
        const int ready = poll(&readable, 1, static_cast<int>(deadline.remainingTime()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            break;
        std::array<char, 4096> buffer{};
        const ssize_t n = ::read(pipe[0], buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            complete = n == 0;
            break;
        }
        data.append(buffer.data(), n);
    }
    ::close(pipe[0]);
    if (!complete)
        return std::nullopt;
    return QString::fromUtf8(data);
}
