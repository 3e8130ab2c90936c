// The clipboard of a Wayland compositor that lets only the program with the keyboard focus read
// or set it, and offers no protocol for clipboard managers (GNOME's mutter): as a person's
// program does it, this one shows a window, which gets the focus as a new window does, and then
// reads or sets the clipboard.
//
//     quillmar-test-clipboard copy TEXT   puts TEXT on the clipboard, prints "copied", closes its
//                                         window and stays the clipboard's owner until it is
//                                         stopped
//     quillmar-test-clipboard paste       prints the clipboard's text and ends
//
// To copy, the window covers the screen and waits for the pointer to move over it: mutter keeps
// the clipboard of a program that copied with a later input serial than the one given (its
// meta_wayland_data_device_set_selection), and Qt 6.4 copies with the serial of the last
// pointer entry, button or key of its own, never of the keyboard's focus.
//
// It ends with code 2 when the compositor does not give its window the focus (and, to copy, the
// pointer) in time.

#include <QClipboard>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QTimer>

#include <cstdio>
#include <functional>

namespace {

// A transparent window: it takes the focus and shows nothing.
class FocusWindow : public QRasterWindow {
public:
    FocusWindow() {
        setFlag(Qt::FramelessWindowHint);
        QSurfaceFormat format = requestedFormat();
        format.setAlphaBufferSize(8);
        setFormat(format);
        resize(1, 1);
    }
    bool pointerEntered = false;
    // Called once the pointer has entered.
    std::function<void()> entered;

protected:
    bool event(QEvent* event) override {
        const bool handled = QRasterWindow::event(event);
        if (event->type() == QEvent::Enter && !pointerEntered) {
            pointerEntered = true;
            entered();
        }
        return handled;
    }

    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(QRect(QPoint(0, 0), size()), Qt::transparent);
    }
};

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const bool copy = arguments.size() == 3 && arguments.at(1) == QLatin1String("copy");
    if (!copy && !(arguments.size() == 2 && arguments.at(1) == QLatin1String("paste"))) {
        std::fputs("usage: quillmar-test-clipboard copy TEXT | paste\n", stderr);
        return 1;
    }
    FocusWindow window;
    QTimer giveUp;
    giveUp.setSingleShot(true);
    QObject::connect(&giveUp, &QTimer::timeout, &app, [] {
        std::fputs("the window did not get the focus\n", stderr);
        QCoreApplication::exit(2);
    });
    const auto ready = [&] {
        if (!giveUp.isActive() || QGuiApplication::focusWindow() != &window ||
            (copy && !window.pointerEntered))
            return;
        giveUp.stop();
        if (copy) {
            QGuiApplication::clipboard()->setText(arguments.at(2));
            // Gone from the screen for good: a window left there, transparent as it is, would
            // take every click.
            window.destroy();
            std::puts("copied");
            std::fflush(stdout);
            return;
        }
        const QByteArray text = QGuiApplication::clipboard()->text().toUtf8();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        std::fflush(stdout);
        QCoreApplication::exit(0);
    };
    QObject::connect(&app, &QGuiApplication::focusWindowChanged, &app, ready);
    window.entered = ready;
    if (copy)
        window.showFullScreen();
    else
        window.show();
    giveUp.start(10000);
    return app.exec();
}
