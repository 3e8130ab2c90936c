// The clipboard of a Wayland compositor that lets only the program with the keyboard focus read
// or set it, and offers no protocol for clipboard managers (GNOME's mutter): as a person's
// program does it, this one shows a window, which gets the focus as a new window does, and then
// reads or sets the clipboard.
//
//     quillmar-test-clipboard copy TEXT   puts TEXT on the clipboard, prints "copied", hides its
//                                         window and stays the clipboard's owner until it is
//                                         stopped
//     quillmar-test-clipboard paste       prints the clipboard's text and ends
//
// It ends with code 2 when the compositor does not give its window the focus in time.

#include <QClipboard>
#include <QGuiApplication>
#include <QPainter>
#include <QRasterWindow>
#include <QTimer>

#include <cstdio>

namespace {

// A window of one transparent pixel: it takes the focus and shows nothing.
class FocusWindow : public QRasterWindow {
public:
    FocusWindow() {
        setFlag(Qt::FramelessWindowHint);
        QSurfaceFormat format = requestedFormat();
        format.setAlphaBufferSize(8);
        setFormat(format);
        resize(1, 1);
    }

protected:
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
    QObject::connect(&app, &QGuiApplication::focusWindowChanged, &app, [&](QWindow* focus) {
        if (focus != &window || !giveUp.isActive())
            return;
        giveUp.stop();
        if (copy) {
            QGuiApplication::clipboard()->setText(arguments.at(2));
            window.hide();
            std::puts("copied");
            std::fflush(stdout);
            return;
        }
        const QByteArray text = QGuiApplication::clipboard()->text().toUtf8();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        std::fflush(stdout);
        QCoreApplication::exit(0);
    });
    window.show();
    giveUp.start(10000);
    return app.exec();
}
