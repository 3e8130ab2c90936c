#include "app/clipboard/FocusClipboardBackend.h"

#include "app/clipboard/QtClipboardBackend.h"
#include "app/wayland/XdgActivation.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QWidget>
#include <QWindow>

#include <utility>

namespace {
// A compositor that has not given the keyboard by then will not (GNOME gives it about 0.7 s
// after the window shows when its own menu was open).
constexpr int focusTimeoutMs = 3000;
} // namespace

FocusClipboardBackend::FocusClipboardBackend() {
    m_giveUp.setSingleShot(true);
    m_giveUp.setInterval(focusTimeoutMs);
    connect(&m_giveUp, &QTimer::timeout, this, &FocusClipboardBackend::finish);
    connect(&m_selection, &KeyboardSelection::keyboardEntered, this, [this] {
        // The compositor offers the clipboard as the keyboard arrives: the clipboard
        // unreadable when it changed is readable now.
        Q_EMIT changed();
        serve();
    });
    connect(&m_selection, &KeyboardSelection::confirmed, this,
            &FocusClipboardBackend::copyConfirmed);
    connect(&m_selection, &KeyboardSelection::refused, this, &FocusClipboardBackend::copyRefused);
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this,
            &ClipboardBackend::changed);
}

FocusClipboardBackend::~FocusClipboardBackend() = default;

void FocusClipboardBackend::setText(const QString& text) {
    m_copy = text;
    serve();
}

std::optional<QString> FocusClipboardBackend::text() {
    if (!m_selection.hasKeyboard())
        return std::nullopt;
    // Qt would answer a read of this program's own offer only from the event loop.
    if (auto own = m_selection.ownText())
        return own;
    return QtClipboardBackend().text();
}

void FocusClipboardBackend::readText(Done done) {
    m_reads.append(std::move(done));
    serve();
}

void FocusClipboardBackend::serve() {
    if (!m_selection.hasKeyboard()) {
        if (m_copy || !m_reads.isEmpty())
            showWindow();
        return;
    }
    if (m_copy && !m_offered) {
        m_offered = m_copy;
        m_selection.setText(*m_offered);
    }
    const auto reads = std::exchange(m_reads, {});
    for (const Done& done : reads)
        done(text());
    if (!m_copy && !m_offered && m_reads.isEmpty())
        closeWindow();
}

void FocusClipboardBackend::copyConfirmed() {
    if (m_copy == m_offered)
        m_copy.reset();
    m_offered.reset();
    // A newer text may wait.
    serve();
}

void FocusClipboardBackend::copyRefused() {
    m_offered.reset();
    if (!m_copy)
        return;
    // Offered while the keyboard was leaving (a menu closing as its entry is chosen): a new
    // window brings it back. With the window already there, the next arrival of the keyboard
    // tries again, until the time runs out.
    if (!m_window)
        showWindow();
}

void FocusClipboardBackend::showWindow() {
    if (m_window)
        return;
    m_window = std::make_unique<QWidget>(nullptr, Qt::Window | Qt::FramelessWindowHint);
    m_window->setAttribute(Qt::WA_TranslucentBackground);
    m_window->setWindowTitle(QStringLiteral("Quillmar"));
    m_window->setFixedSize(1, 1);
    m_window->show();
    XdgActivation::activateWhenShown(m_window->windowHandle());
    m_giveUp.start();
}

void FocusClipboardBackend::finish() {
    m_copy.reset();
    const auto reads = std::exchange(m_reads, {});
    for (const Done& done : reads)
        done(std::nullopt);
    closeWindow();
}

void FocusClipboardBackend::closeWindow() {
    m_giveUp.stop();
    if (m_window) {
        m_window->hide();
        m_window.release()->deleteLater();
    }
}
