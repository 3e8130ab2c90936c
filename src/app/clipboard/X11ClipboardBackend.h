#pragma once

#include "app/clipboard/QtClipboardBackend.h"

#include <QByteArray>

#include <chrono>
#include <cstdint>

struct xcb_connection_t;

// The X11 clipboard. Set through Qt, which then answers other programs' requests for it and
// tells of changes; read over an X connection of its own. Reading through Qt lists every image
// format the clipboard could be converted to, which loads all of Qt's image plugins and their
// libraries (0.4 MiB, kept for the life of the program) only to learn whether an address was
// copied.
class X11ClipboardBackend : public QtClipboardBackend {
    Q_OBJECT
public:
    // answerTimeout: how long the program that holds the clipboard has for each answer.
    explicit X11ClipboardBackend(std::chrono::milliseconds answerTimeout = defaultAnswerTimeout);
    ~X11ClipboardBackend() override;

    std::optional<QString> text() override;
    // The X server tells of every new owner of the clipboard (XFixes), and a program that copies
    // always takes it anew.
    bool announcesEveryChange() const override { return true; }

    // As long as Qt waits for the owner of the clipboard.
    static constexpr std::chrono::milliseconds defaultAnswerTimeout{5000};

private:
    // What the owner gave for one kind of text: bytes of a type, nothing of that kind, or no
    // answer.
    struct Answer {
        enum class Kind { Given, Refused, Silent } kind;
        std::uint32_t type;
        QByteArray bytes;
    };

    bool connectToServer();
    void disconnectFromServer();
    Answer convert(std::uint32_t target);
    // The whole value of the property the owner wrote, deleting it (which, for a value given in
    // pieces, asks for the next piece); none when the connection failed.
    std::optional<QByteArray> takeProperty(std::uint32_t* type);
    std::optional<QByteArray> takePieces(std::uint32_t* type);
    // The next event of the given type (XCB_SELECTION_NOTIFY, XCB_PROPERTY_NOTIFY) that concerns
    // the window and property used here, or null once the answer timeout has passed.
    void* waitFor(std::uint8_t type);

    std::chrono::milliseconds m_answerTimeout;
    xcb_connection_t* m_connection = nullptr;
    std::uint32_t m_window = 0;
    std::uint32_t m_clipboard = 0;
    std::uint32_t m_utf8String = 0;
    std::uint32_t m_incr = 0;
    std::uint32_t m_property = 0;
};
