#include "app/Application.h"

#include "app/wayland/XdgActivation.h"

#include <QApplication>
#include <QTimer>

#include <utility>

Application::Application(AppEnvironment environment, QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_environment(std::move(environment))
    , m_instance(std::move(bus))
    , m_desktopAdaptor(new DesktopApplicationAdaptor(&m_instance, m_instance.connection())) {
    QApplication::setApplicationName(QStringLiteral("Quillmar"));
    QApplication::setOrganizationName(QStringLiteral("Quillmar"));
    QApplication::setDesktopFileName(QStringLiteral("app.quillmar.Quillmar"));
    // A tray utility: closing its last window (settings, an alert) does not end it.
    QApplication::setQuitOnLastWindowClosed(false);
}

Application::~Application() = default;

bool Application::start() {
    if (!m_instance.claim()) {
        // Quillmar already runs in this session: open its menu rather than add a second icon.
        m_instance.showMenuInRunningInstance();
        return false;
    }
    m_delegate = std::make_unique<AppDelegate>(m_environment);
    m_instance.setAction([this] { showMenu(); });
    m_desktopAdaptor->setMenuAction([this] { showMenu(); });
    m_desktopAdaptor->setSettingsAction(
        [this](const QString& activationToken) { showSettings(activationToken); });
    // Queued before any D-Bus call can arrive, so every call finds the status item in place.
    QTimer::singleShot(0, m_delegate.get(), &AppDelegate::applicationDidFinishLaunching);
    return true;
}

void Application::showMenu() {
    if (m_delegate)
        m_delegate->openMenu();
}

void Application::showSettings(const QString& activationToken) {
    // The launcher's token gives the window the keyboard, as a panel's does.
    if (!activationToken.isEmpty())
        XdgActivation::setToken(activationToken);
    if (m_delegate)
        m_delegate->openSettings();
}
