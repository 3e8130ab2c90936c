#include "app/AppDelegate.h"

#include "config/SettingsNotifier.h"
#include "service/HttpSession.h"

#include <QApplication>
#include <QEvent>
#include <QFont>
#include <QFontInfo>
#include <QKeySequence>
#include <QMenu>
#include <QPointer>
#include <QTimer>

AppDelegate::AppDelegate(AppEnvironment environment, QObject* parent)
    : QObject(parent)
    , m_environment(std::move(environment.environment))
    , m_timings(std::move(environment.timings))
    // The settings window talks to the same service as the menu.
    , m_settingsWindow(m_environment.apiBase, m_environment.webApp) {}

AppDelegate::~AppDelegate() {
    HttpSession::keepConnectionsWhile({});
}

void AppDelegate::applicationDidFinishLaunching() {
    m_colorScheme = std::make_unique<ColorSchemeFollower>();
    m_statusItem = std::make_unique<StatusItem>();
    // The next submenu a person opens reuses the connection; an idle program keeps none.
    HttpSession::keepConnectionsWhile([this] { return m_statusItem->isMenuOpen(); });
    connect(m_statusItem.get(), &StatusItem::menuClosed, this, &HttpSession::closeIdleConnections);
    // The font is chosen just before the first text is shown (a menu, the settings, an alert),
    // not at the start: finding the default font's family reads fontconfig's configuration and
    // fills Qt's font database, 10 MB of memory with the fonts of a desktop installation, which
    // a program whose menu the panel draws may never need. (An XEmbed tray's icon window was
    // shown above, before this.)
    connect(m_statusItem.get(), &StatusItem::menuChanged, this,
            &AppDelegate::preferColourEmojiBeforeShown);
    qApp->installEventFilter(this);
    connect(&SettingsNotifier::instance(), &SettingsNotifier::settingsChanged, this,
            &AppDelegate::settingsChanged);
    chooseMenu(AppConfig::load());
    // Asking the system bus is no business of the start-up either.
    QTimer::singleShot(0, this, &AppDelegate::watchForReloads);
    // Nor is the colour preference, asked once the icon is in place: asking the settings portal
    // starts the desktop portal's programs where none runs yet (half a dozen on a GNOME or KDE
    // installation), which would compete with the tray for the processor.
    QTimer::singleShot(colourPreferenceDelay, m_colorScheme.get(),
                       &ColorSchemeFollower::readPreference);
}

void AppDelegate::watchForReloads() {
    m_connectivityWatcher = std::make_unique<ConnectivityWatcher>();
    connect(m_connectivityWatcher.get(), &ConnectivityWatcher::online, this,
            &AppDelegate::reloadIfOutdated);
    m_resumeWatcher = std::make_unique<ResumeWatcher>();
    connect(m_resumeWatcher.get(), &ResumeWatcher::resumed, this, &AppDelegate::reloadIfOutdated);
}

void AppDelegate::reloadIfOutdated() {
    // The setup menu has nothing to reload.
    if (m_menuManager)
        m_menuManager->reloadIfOutdated();
}

void AppDelegate::preferColourEmojiBeforeShown(QMenu* menu) {
    // A menu is laid out after it announces that it is about to show, before it shows.
    if (menu)
        connect(menu, &QMenu::aboutToShow, this, &AppDelegate::preferColourEmoji);
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event) {
    // Other windows are laid out again when their font changes.
    if (event->type() == QEvent::Show && watched->isWidgetType() &&
        static_cast<QWidget*>(watched)->isWindow())
        preferColourEmoji();
    return QObject::eventFilter(watched, event);
}

void AppDelegate::preferColourEmoji() {
    if (m_colourEmojiPreferred)
        return;
    m_colourEmojiPreferred = true;
    qApp->removeEventFilter(this);
    disconnect(m_statusItem.get(), &StatusItem::menuChanged, this,
               &AppDelegate::preferColourEmojiBeforeShown);
    // The menus' emoji come from the colour emoji font before any monochrome symbol font; symbols
    // that font lacks (such as ⎘) still fall back to whichever font has them.
    QFont font = QApplication::font();
    const QStringList families{QFontInfo(font).family(), QStringLiteral("Noto Color Emoji")};
    font.setFamilies(families);
    QApplication::setFont(font);
    // Windows made before (the menus, each a window of its own) keep the family they were made
    // with: Qt 6.4 does not pass a new application font's families on to them.
    const QWidgetList widgets = QApplication::allWidgets();
    for (QWidget* widget : widgets) {
        if (!widget->isWindow())
            continue;
        QFont windowFont = widget->font();
        windowFont.setFamilies(families);
        widget->setFont(windowFont);
    }
}

void AppDelegate::chooseMenu(const AppConfig& config) {
    // Only an empty token means "not set up"; a token of spaces counts as set up.
    if (config.token.isEmpty())
        showSetupPrompt();
    else
        start(config);
}

void AppDelegate::showSetupPrompt() {
    auto* menu = new QMenu();
    menu->addAction(QStringLiteral("Welcome to Quillmar"))->setEnabled(false);
    menu->addAction(QStringLiteral("Open Settings to add your API token"))->setEnabled(false);
    menu->addSeparator();
    QAction* settings = menu->addAction(QStringLiteral("Settings…"));
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, &AppDelegate::openSettings);
    QAction* quit = menu->addAction(QStringLiteral("Quit"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, qApp, &QApplication::quit, Qt::QueuedConnection);
    m_statusItem->setMenu(menu);
}

void AppDelegate::start(const AppConfig& config) {
    // A new manager on every start: the previous one goes, with its menu, timers and cache.
    m_menuManager =
        std::make_unique<MenuManager>(m_statusItem.get(), config, m_environment, m_timings);
    connect(m_menuManager.get(), &MenuManager::settingsRequested, this, &AppDelegate::openSettings);
    m_menuManager->buildInitialMenu();
    m_menuManager->loadData();

    // The key opens whichever menu the tray icon has then; the action holds the delegate weakly.
    m_hotKeyManager.update(config.openMenuShortcut.value_or(ShortcutConfig::defaultShortcut()),
                           [self = QPointer<AppDelegate>(this)] {
                               if (self)
                                   self->openMenu();
                           });
}

void AppDelegate::openMenu() {
    if (m_statusItem)
        m_statusItem->performClick();
}

void AppDelegate::settingsChanged() {
    // With an empty token the current menu manager is kept on purpose: only the menu changes.
    chooseMenu(AppConfig::load());
}

void AppDelegate::openSettings() {
    m_settingsWindow.show();
}
