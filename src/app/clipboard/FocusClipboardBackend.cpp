#include "app/clipboard/FocusClipboardBackend.h"

#include "app/clipboard/QtClipboardBackend.h"
#include "app/wayland/XdgActivation.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QWidget>
#include <QWindow>

#include <utility>

namespace {
// A compositor that has not given the focus by then will not.
constexpr int focusTimeoutMs = 2000;
} // namespace

FocusClipboardBackend::FocusClipboardBackend() {
    m_giveUp.setSingleShot(true);
    m_giveUp.setInterval(focusTimeoutMs);
    connect(&m_giveUp, &QTimer::timeout, this, [this] { finish(false); });
    connect(qApp, &QGuiApplication::focusWindowChanged, this, &FocusClipboardBackend::focusChanged);
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this,
            &ClipboardBackend::changed);
}

FocusClipboardBackend::~FocusClipboardBackend() = default;

void FocusClipboardBackend::setText(const QString& text) {
    withFocus([text] { QtClipboardBackend().setText(text); }, [] {});
}

std::optional<QString> FocusClipboardBackend::text() {
    if (!QGuiApplication::focusWindow())
        return std::nullopt;
    return QtClipboardBackend().text();
}

void FocusClipboardBackend::readText(Done done) {
    withFocus([done] { done(QtClipboardBackend().text()); }, [done] { done(std::nullopt); });
}

void FocusClipboardBackend::withFocus(Work work, Work failed) {
    if (QGuiApplication::focusWindow()) {
        work();
        return;
    }
    m_pending.append({std::move(work), std::move(failed)});
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

void FocusClipboardBackend::focusChanged(QWindow* focus) {
    if (m_window && focus && focus == m_window->windowHandle()) {
        finish(true);
        return;
    }
    // The compositor offers the clipboard as the focus arrives, which Qt reports after it: the
    // clipboard unreadable when it changed is readable now.
    if (focus)
        Q_EMIT changed();
}

void FocusClipboardBackend::finish(bool focused) {
    m_giveUp.stop();
    const auto pending = std::exchange(m_pending, {});
    for (const auto& [work, failed] : pending)
        focused ? work() : failed();
    // After the clipboard requests: the compositor takes them in order, while the focus is here.
    if (m_window) {
        m_window->hide();
        m_window.release()->deleteLater();
    }
}
