#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// The desktop's clipboard, plain text only, on one kind of desktop. X11 lets any program read
// and set it at any time; Wayland only the program that has the keyboard focus, unless the
// compositor offers a protocol for clipboard managers.
class ClipboardBackend : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void(std::optional<QString>)>;

    using QObject::QObject;

    // Puts text on the clipboard as plain text.
    virtual void setText(const QString& text) = 0;
    // The clipboard's plain text now (empty when it holds none); none when this program cannot
    // read it at this moment.
    virtual std::optional<QString> text() = 0;
    // Reads the clipboard even when that takes a moment; done gets none when it cannot be read.
    virtual void readText(Done done) { done(text()); }
    // Whether text() still tells the clipboard while another program holds the keyboard, a
    // panel's menu among them. Where it does not, what it gives then may be out of date.
    virtual bool readableInBackground() const { return true; }
    // Whether changed() is sent for every change another program makes, so that what was read
    // last holds until it is sent.
    virtual bool announcesEveryChange() const { return false; }

Q_SIGNALS:
    // The clipboard changed, as far as this program can see it: another program copied, or a
    // window of this program got the focus and with it the clipboard.
    void changed();
};
