// The clipboard on sway, read and set through the data-control protocol with no window of
// Quillmar's at all: another program's copy is seen and told at once, and Quillmar's own copy
// can be pasted elsewhere. sway alone, without a bar: a few seconds.

#include "ChildProcess.h"
#include "UnprivilegedUser.h"

#include "app/clipboard/DataControlClipboardBackend.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

class tst_wayland_SwayClipboard : public QObject {
    Q_OBJECT
public:
    // sway refuses to run as root.
    static void initMain() {
        UnprivilegedUser::runTestAsUnprivilegedUser();
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void anotherProgramsCopyIsToldAndRead();
    void emptiedClipboardIsToldAndReadEmpty();
    void ownCopyIsPastedElsewhere();

private:
    QString log(const QString& name) const { return m_folder.filePath(name + u".log"_s); }
    static QString paste();

    QTemporaryDir m_folder;
    ChildProcess m_sway;
    ChildProcess m_copier;
    std::unique_ptr<DataControlClipboardBackend> m_clipboard;
};

void tst_wayland_SwayClipboard::initTestCase() {
    QVERIFY(m_folder.isValid());
    QFile configuration(m_folder.filePath(u"sway.conf"_s));
    QVERIFY(configuration.open(QIODevice::WriteOnly));
    configuration.write("output HEADLESS-1 resolution 640x480\n");
    configuration.close();
    qputenv("WLR_BACKENDS", "headless");
    qputenv("WLR_LIBINPUT_NO_DEVICES", "1");
    qputenv("WLR_RENDERER", "pixman");
    QVERIFY(m_sway.start({u"sway"_s, u"--config"_s, configuration.fileName()}, log(u"sway"_s)));
    const QDir runtime(qEnvironmentVariable("XDG_RUNTIME_DIR"));
    QString display;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QStringList sockets = runtime.entryList({u"wayland-*"_s}, QDir::System);
            for (const QString& socket : sockets)
                if (!socket.endsWith(u".lock"_s))
                    display = socket;
            return !display.isEmpty();
        }(),
        30000);
    qputenv("WAYLAND_DISPLAY", display.toLocal8Bit());
    m_clipboard = DataControlClipboardBackend::connectToCompositor();
    QVERIFY2(m_clipboard, "sway offers no data-control protocol");
    // The empty clipboard found on connecting is told too: not a change the tests wait for.
    QCoreApplication::processEvents();
}

void tst_wayland_SwayClipboard::cleanupTestCase() {
    m_clipboard.reset();
    m_copier.stop();
    m_sway.stop();
}

QString tst_wayland_SwayClipboard::paste() {
    return QString::fromUtf8(ChildProcess::run({u"wl-paste"_s, u"--no-newline"_s}).output);
}

void tst_wayland_SwayClipboard::anotherProgramsCopyIsToldAndRead() {
    QSignalSpy changed(m_clipboard.get(), &ClipboardBackend::changed);
    const QString text = u"see https://example.org/copied, thanks"_s;
    // --foreground keeps wl-copy the clipboard's owner until it is stopped.
    QVERIFY(m_copier.start({u"wl-copy"_s, u"--foreground"_s, u"--"_s, text}, log(u"wl-copy"_s)));
    QTRY_VERIFY(!changed.isEmpty());
    QCOMPARE(m_clipboard->text(), std::optional<QString>(text));
}

void tst_wayland_SwayClipboard::emptiedClipboardIsToldAndReadEmpty() {
    m_copier.stop();
    QVERIFY(m_copier.start({u"wl-copy"_s, u"--foreground"_s, u"--"_s, u"short-lived"_s},
                           log(u"wl-copy"_s)));
    QTRY_COMPARE(m_clipboard->text(), std::optional<QString>(u"short-lived"_s));
    QSignalSpy changed(m_clipboard.get(), &ClipboardBackend::changed);
    // The clipboard's owner going empties it.
    m_copier.stop();
    QTRY_VERIFY(!changed.isEmpty());
    QCOMPARE(m_clipboard->text(), std::optional<QString>(QString()));
}

void tst_wayland_SwayClipboard::ownCopyIsPastedElsewhere() {
    const QString text = u"https://example.org/from-quillmar"_s;
    m_clipboard->setText(text);
    QCOMPARE(m_clipboard->text(), std::optional<QString>(text));
    QTRY_COMPARE(paste(), text);
}

QTEST_MAIN(tst_wayland_SwayClipboard)
#include "tst_wayland_SwayClipboard.moc"
