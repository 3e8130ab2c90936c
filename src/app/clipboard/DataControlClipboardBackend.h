#pragma once

#include "app/clipboard/ClipboardBackend.h"

#include <QByteArray>
#include <QHash>
#include <QStringList>

#include <memory>

class QSocketNotifier;
struct wl_display;
struct wl_registry;
struct wl_seat;
struct zwlr_data_control_device_v1;
struct zwlr_data_control_manager_v1;
struct zwlr_data_control_offer_v1;
struct zwlr_data_control_source_v1;

// The clipboard on Wayland compositors that offer wlroots' data-control protocol (sway and the
// other wlroots compositors, KWin): it reads and sets the clipboard without keyboard focus, as
// clipboard managers do, so a choice in the panel's menu can copy. It talks over a Wayland
// connection of its own, next to Qt's.
class DataControlClipboardBackend : public ClipboardBackend {
    Q_OBJECT
public:
    // None when there is no Wayland display or its compositor lacks the protocol.
    static std::unique_ptr<DataControlClipboardBackend> connectToCompositor();
    ~DataControlClipboardBackend() override;

    void setText(const QString& text) override;
    std::optional<QString> text() override;

private:
    explicit DataControlClipboardBackend(wl_display* display);
    bool bindGlobals();
    void dispatch();
    void flush();
    void disconnectFromCompositor();
    // Writes what this program put on the clipboard to a reader, then closes fd.
    void send(int fd) const;
    std::optional<QString> receive(zwlr_data_control_offer_v1* offer, const QString& type);

    // The protocol's callbacks, which change the members below.
    friend struct DataControlListeners;

    wl_display* m_display = nullptr;
    wl_registry* m_registry = nullptr;
    wl_seat* m_seat = nullptr;
    zwlr_data_control_manager_v1* m_manager = nullptr;
    zwlr_data_control_device_v1* m_device = nullptr;
    std::unique_ptr<QSocketNotifier> m_notifier;
    // The types each announced offer has, until it becomes the selection or goes.
    QHash<zwlr_data_control_offer_v1*, QStringList> m_offerTypes;
    zwlr_data_control_offer_v1* m_selection = nullptr;
    // What this program put on the clipboard, while it is still there.
    zwlr_data_control_source_v1* m_source = nullptr;
    QByteArray m_sourceText;
};
