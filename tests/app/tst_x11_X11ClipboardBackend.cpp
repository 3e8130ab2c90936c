// The X11 clipboard read over Quillmar's own X connection, from real owners: xclip, offering
// what it is told to, and a client that takes the clipboard and never answers.
#include "ChildProcess.h"
#include "VirtualDesktop.h"
#include "app/clipboard/X11ClipboardBackend.h"

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryFile>
#include <QTest>

#include <xcb/xcb.h>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Whether one of Qt's image format plugins is loaded into this process.
bool imagePluginLoaded() {
    QFile maps(u"/proc/self/maps"_s);
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("/imageformats/");
}

} // namespace

class tst_x11_X11ClipboardBackend : public QObject {
    Q_OBJECT
public:
    static void initMain() { VirtualDesktop::startShared({.trayHost = false}); }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    // First: no earlier owner's departure is still on its way to be announced.
    void announcesACopy();
    void emptyWhileNobodyHoldsIt();
    void readsWhatAnotherProgramCopied();
    void readsLatin1FromOlderPrograms();
    void emptyWhenTheOwnerHasNoText();
    void readsALargeTextGivenInPieces();
    void noneWhenTheOwnerDoesNotAnswer();
    void readsAndServesItsOwnCopy();

private:
    // The window that holds the clipboard, as the X server tells this test's own connection.
    xcb_window_t clipboardOwner();
    // Has xclip hold bytes on the clipboard as target (a type such as UTF8_STRING or STRING),
    // and waits until it holds it.
    bool copyFromOutside(const QByteArray& bytes, const QString& target = u"UTF8_STRING"_s);

    xcb_connection_t* m_connection = nullptr;
    xcb_atom_t m_clipboard = XCB_NONE;
    ChildProcess m_owner;
    QTemporaryFile m_bytes;
};

void tst_x11_X11ClipboardBackend::initTestCase() {
    m_connection = xcb_connect(nullptr, nullptr);
    QVERIFY(!xcb_connection_has_error(m_connection));
    const char name[] = "CLIPBOARD";
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, sizeof name - 1, name), nullptr);
    QVERIFY(atom);
    m_clipboard = atom->atom;
    std::free(atom);
}

void tst_x11_X11ClipboardBackend::cleanupTestCase() {
    xcb_disconnect(m_connection);
}

xcb_window_t tst_x11_X11ClipboardBackend::clipboardOwner() {
    xcb_get_selection_owner_reply_t* reply = xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_clipboard), nullptr);
    const xcb_window_t owner = reply ? reply->owner : XCB_NONE;
    std::free(reply);
    return owner;
}

bool tst_x11_X11ClipboardBackend::copyFromOutside(const QByteArray& bytes, const QString& target) {
    // Nobody holds it in between, so that the next holder is known by being there.
    m_owner.stop();
    if (!QTest::qWaitFor([this] { return clipboardOwner() == XCB_NONE; }))
        return false;
    if (!m_bytes.open())
        return false;
    m_bytes.resize(0);
    m_bytes.write(bytes);
    m_bytes.flush();
    // -quiet keeps xclip in the foreground, holding the clipboard until it is stopped.
    return m_owner.start({u"xclip"_s, u"-selection"_s, u"clipboard"_s, u"-target"_s, target,
                          u"-quiet"_s, m_bytes.fileName()},
                         VirtualDesktop::shared().logDirectory() + u"/xclip.log"_s) &&
           QTest::qWaitFor([this] { return clipboardOwner() != XCB_NONE; }, 10000);
}

void tst_x11_X11ClipboardBackend::cleanup() {
    m_owner.stop();
}

void tst_x11_X11ClipboardBackend::announcesACopy() {
    X11ClipboardBackend backend;
    QSignalSpy changed(&backend, &ClipboardBackend::changed);
    QVERIFY(copyFromOutside("https://first.example/"));
    QTRY_VERIFY(!changed.isEmpty());
}

void tst_x11_X11ClipboardBackend::emptyWhileNobodyHoldsIt() {
    X11ClipboardBackend backend;
    QCOMPARE(backend.text(), std::optional<QString>(QString()));
}

void tst_x11_X11ClipboardBackend::readsWhatAnotherProgramCopied() {
    X11ClipboardBackend backend;
    const QString text = u"Read https://example.com/ä, then 🌐 more"_s;
    QVERIFY(copyFromOutside(text.toUtf8()));
    QCOMPARE(backend.text(), std::optional<QString>(text));
    // Reading the clipboard through Qt loads every image plugin it has, for good.
    QVERIFY(!imagePluginLoaded());
}

void tst_x11_X11ClipboardBackend::readsLatin1FromOlderPrograms() {
    X11ClipboardBackend backend;
    QVERIFY(copyFromOutside("caf\xe9 https://latin.example/", u"STRING"_s));
    QCOMPARE(backend.text(), std::optional<QString>(u"café https://latin.example/"_s));
}

void tst_x11_X11ClipboardBackend::emptyWhenTheOwnerHasNoText() {
    X11ClipboardBackend backend;
    QVERIFY(copyFromOutside("\x89PNG\r\n\x1a\n", u"image/png"_s));
    QCOMPARE(backend.text(), std::optional<QString>(QString()));
}

void tst_x11_X11ClipboardBackend::readsALargeTextGivenInPieces() {
    X11ClipboardBackend backend;
    // Larger than xclip sends in one request (a quarter of the largest request, 4 MiB here).
    const QString text = QString(3 * 1024 * 1024, u'x') + u" https://end.example/"_s;
    QVERIFY(copyFromOutside(text.toUtf8()));
    const std::optional<QString> read = backend.text();
    QVERIFY(read);
    QCOMPARE(read->size(), text.size());
    QCOMPARE(*read, text);
}

void tst_x11_X11ClipboardBackend::noneWhenTheOwnerDoesNotAnswer() {
    X11ClipboardBackend backend(200ms);
    QVERIFY(QTest::qWaitFor([this] { return clipboardOwner() == XCB_NONE; }));
    {
        // A client that takes the clipboard and never reads its events.
        xcb_connection_t* silent = xcb_connect(nullptr, nullptr);
        QVERIFY(!xcb_connection_has_error(silent));
        const auto disconnect = qScopeGuard([silent] { xcb_disconnect(silent); });
        const xcb_window_t window = xcb_generate_id(silent);
        xcb_create_window(silent, XCB_COPY_FROM_PARENT, window,
                          xcb_setup_roots_iterator(xcb_get_setup(silent)).data->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_set_selection_owner(silent, window, m_clipboard, XCB_CURRENT_TIME);
        xcb_flush(silent);
        QVERIFY(QTest::qWaitFor([&] { return clipboardOwner() == window; }, 10000));
        QVERIFY(!backend.text());
    }
    // Once it has gone, the next owner is read on the same connection.
    QVERIFY(copyFromOutside("https://next.example/"));
    QCOMPARE(backend.text(), std::optional<QString>(u"https://next.example/"_s));
}

void tst_x11_X11ClipboardBackend::readsAndServesItsOwnCopy() {
    // Were the request sent to the X server, this program would have to answer it itself, on
    // the event loop that is waiting: the read would take the whole hour.
    X11ClipboardBackend backend(1h);
    QVERIFY(copyFromOutside("https://outside.example/"));
    const xcb_window_t outside = clipboardOwner();
    // Qt takes the clipboard with the time of the last X event it has seen, which the X server
    // refuses until that is the outside copy's or later. Qt's ownsClipboard() says yes after a
    // refused attempt too, so the X server is asked who holds it.
    QTRY_VERIFY((backend.setText(u"https://own.example/ü"_s), clipboardOwner() != outside));
    QVERIFY(QGuiApplication::clipboard()->ownsClipboard());
    QCOMPARE(backend.text(), std::optional<QString>(u"https://own.example/ü"_s));
    // Other programs get it from Qt.
    const ChildProcess::Result read =
        ChildProcess::run({u"xclip"_s, u"-selection"_s, u"clipboard"_s, u"-o"_s});
    QCOMPARE(QString::fromUtf8(read.output), u"https://own.example/ü"_s);
}

QTEST_MAIN(tst_x11_X11ClipboardBackend)
#include "tst_x11_X11ClipboardBackend.moc"
