#pragma once

#include "config/AppConfig.h"
#include "config/Environment.h"
#include "menu/BookmarkItems.h"
#include "menu/BootClock.h"
#include "menu/ClipboardSaver.h"
#include "menu/FullMenuLayout.h"
#include "menu/HoverPrefetch.h"
#include "menu/LazyMenuDelegate.h"
#include "menu/SubmenuPlacement.h"
#include "service/Raindrop.h"
#include "service/RaindropAPI.h"
#include "update/UpdateChecker.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QAction;
class QMenu;
class StatusItem;

// The menu of the tray icon: a placeholder at once, then the full menu built from the bookmark
// service, rebuilt every few minutes and on request. Every menu action lands here, and goes on
// to the part that does it: the layout, the bookmark items, the clipboard, the update checks.
class MenuManager : public QObject {
    Q_OBJECT
public:
    using Clock = LazyMenuDelegate::Clock;

    // Durations of the menu's timers and time-outs; tests shorten them.
    struct Timings {
        std::chrono::milliseconds refreshInterval = std::chrono::seconds(300);
        std::chrono::milliseconds hoverPrefetchDelay = std::chrono::seconds(1);
        // A filled bookmark submenu is loaded again when opened after this long.
        std::chrono::milliseconds staleness = std::chrono::seconds(1800);
        std::chrono::milliseconds requestTimeout = RaindropAPI::defaultTimeout;
        std::chrono::milliseconds pageTitleTimeout = std::chrono::seconds(5);
        // The silent update check after each load, and the repeating one.
        std::chrono::milliseconds updateCheckDelay = UpdateChecker::Timings().firstCheckDelay;
        std::chrono::milliseconds updateCheckInterval = UpdateChecker::Timings().checkInterval;
        // Measures the staleness.
        Clock clock = [] {
            return std::chrono::steady_clock::now();
        };
        // Measures the age of the last full build, the time the machine slept included.
        std::function<std::chrono::nanoseconds()> bootClock = &BootClock::now;
    };

    // The Tags submenu shows no more than this many tags.
    static constexpr int tagLimit = FullMenuLayout::tagLimit;

    MenuManager(StatusItem* statusItem, AppConfig config, Environment environment, Timings timings,
                QObject* parent = nullptr);
    ~MenuManager() override;

    // Attaches the placeholder menu.
    void buildInitialMenu();
    // Starts building the full menu (attached when complete) and restarts the refresh timer.
    void loadData();
    // Forgets every cached list and loaded submenu, then rebuilds; once the menu has closed,
    // when it is open.
    void refresh();
    // The network came back or the computer woke up: refreshes as the refresh timer does when
    // the last full build failed or is older than the refresh interval, and does nothing
    // otherwise. While a build runs it starts none (it looks again once that build is attached),
    // and while the menu is open the refresh waits until the menu has closed.
    void reloadIfOutdated();
    // The attached menu is about to open: "📋 Add Clipboard URL" follows the clipboard.
    void menuWillOpen(QMenu* menu);
    // The highlight of the top-level menu moved to item (none: it left every item). An item
    // that stays highlighted for the hover delay has its bookmarks prefetched.
    void menuWillHighlight(QAction* item);

    // Actions of the menu items. Those given an item read the bookmark it carries.
    void addClipboardURL();
    void openRaindropWeb();
    void openBookmark(QAction* item);
    void copyBookmark(QAction* item);
    void copyMarkdown(QAction* item);
    void editInRaindrop(QAction* item);
    void toggleFavourite(QAction* item);
    void openSettings();
    void checkForUpdates();

    // Arms the update checks: one silent check shortly, and a repeating one (re-armed).
    void scheduleUpdateChecks();
    // One update check that speaks only about a version not yet announced.
    QCoro::Task<> checkForUpdatesSilently();

    // Whether "📋 Add Clipboard URL" is enabled: the clipboard holds an address, or it cannot be
    // read now (it is read again when chosen).
    bool offersClipboardItem();
    // The web address on the clipboard's plain text, if any.
    std::optional<QString> clipboardURL() const;
    // The title of the page at url; none when it cannot be read in time or has no title.
    QCoro::Task<std::optional<QString>> fetchPageTitle(QString url) const;
    // Creates the bookmark; a failure is reported in an alert.
    QCoro::Task<> saveURL(QString url, std::optional<QString> title);

    // The delegates of the lazy submenus of the attached full menu.
    QList<std::shared_ptr<LazyMenuDelegate>> lazyDelegates() const { return m_layout.delegates(); }
    std::shared_ptr<RaindropAPI> api() const { return m_api; }

Q_SIGNALS:
    // "Settings…" was chosen; whoever owns the settings window shows it.
    void settingsRequested();

private:
    QCoro::Task<> buildFullMenu();
    bool isOutdated() const;

    StatusItem* m_statusItem;
    AppConfig m_config;
    Environment m_environment;
    Timings m_timings;
    std::shared_ptr<RaindropAPI> m_api;
    QTimer m_refreshTimer;
    // The full builds under way, when the last one attached began and whether it failed.
    int m_buildsInFlight = 0;
    std::optional<std::chrono::nanoseconds> m_lastBuildStart;
    bool m_lastBuildFailed = false;
    // A reload asked for while a build ran.
    bool m_reloadAfterBuild = false;
    bool m_refreshWaiting = false;
    UpdateChecker m_updateChecker;
    SubmenuPlacement m_submenuPlacement;
    BookmarkItems m_bookmarks;
    FullMenuLayout m_layout;
    HoverPrefetch m_hoverPrefetch;
    ClipboardSaver m_clipboard;
};
