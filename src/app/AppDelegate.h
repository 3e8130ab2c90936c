#pragma once

#include "app/AppEnvironment.h"
#include "app/desktop/ColorSchemeFollower.h"
#include "app/desktop/ConnectivityWatcher.h"
#include "app/desktop/ResumeWatcher.h"
#include "app/hotkey/HotKeyManager.h"
#include "app/tray/StatusItem.h"
#include "config/AppConfig.h"
#include "config/Environment.h"
#include "menu/MenuManager.h"
#include "settings/SettingsWindowController.h"

#include <QObject>

#include <chrono>
#include <memory>

// The application shell: the tray icon, the choice between the setup menu and the bookmark
// menu, the settings window, and the reaction to saved settings.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    // The desktop's light or dark preference is asked this long after the launch.
    static constexpr std::chrono::milliseconds colourPreferenceDelay{1000};

    // The menu and the settings window get their addresses, timings and clocks from
    // environment.
    explicit AppDelegate(AppEnvironment environment = {}, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Called once the event loop is up.
    void applicationDidFinishLaunching();

    // Opens the tray icon's menu as a click would: what the hot key and the desktop's "open
    // the menu" requests do. Nothing before the launch.
    void openMenu();
    // Shows the one settings window, made on first use, and brings it to the front: what
    // "Settings…" in either menu and the desktop's "settings" action do.
    void openSettings();

    StatusItem* statusItem() const { return m_statusItem.get(); }
    // Follows the desktop's light or dark preference, read soon after launch.
    ColorSchemeFollower* colorScheme() const { return m_colorScheme.get(); }
    // The newest menu manager; none before the first start with a token.
    MenuManager* menuManager() const { return m_menuManager.get(); }
    // What reloads an outdated menu; none until the event loop has run after the launch.
    ConnectivityWatcher* connectivityWatcher() const { return m_connectivityWatcher.get(); }
    ResumeWatcher* resumeWatcher() const { return m_resumeWatcher.get(); }
    // The controller of the one settings window, kept for the whole run; the window is made on
    // the first openSettings().
    SettingsWindowController* settingsWindow() { return &m_settingsWindow; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showSetupPrompt();
    void start(const AppConfig& config);
    void settingsChanged();
    void chooseMenu(const AppConfig& config);
    void preferColourEmojiBeforeShown(QMenu* menu);
    void preferColourEmoji();
    void watchForReloads();
    void reloadIfOutdated();

    Environment m_environment;
    MenuManager::Timings m_timings;
    SettingsWindowController m_settingsWindow;
    std::unique_ptr<ColorSchemeFollower> m_colorScheme;
    std::unique_ptr<StatusItem> m_statusItem;
    std::unique_ptr<MenuManager> m_menuManager;
    // Created with the delegate and kept for the whole run, across every start.
    HotKeyManager m_hotKeyManager;
    bool m_colourEmojiPreferred = false;
    // The network coming back and the computer waking up reload an outdated menu.
    std::unique_ptr<ConnectivityWatcher> m_connectivityWatcher;
    std::unique_ptr<ResumeWatcher> m_resumeWatcher;
};
