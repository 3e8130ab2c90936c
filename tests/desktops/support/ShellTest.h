#pragma once

#include "ChildProcess.h"
#include "DesktopInput.h"
#include "DesktopSession.h"
#include "FakeRaindropService.h"
#include "QuillmarProcess.h"
#include "ScreenReader.h"
#include "TestHttpServer.h"
#include "X11Input.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QPair>
#include <QRect>
#include <QString>
#include <QStringList>

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

// What a person sees of Quillmar in one real desktop shell, checked point by point: each test
// function below is one promise Quillmar makes on every desktop. A shell's test program derives
// from this class and says how its shell is started and driven; the shell starts once and
// serves every function. Quillmar runs inside the shell's session as its own process, talking
// to the bookmark service, web pages and update manifest played by this process on 127.0.0.1.
class ShellTest : public QObject {
    Q_OBJECT
public:
    ~ShellTest() override;

protected:
    // How a menu's submenu opens in this shell.
    enum class Submenus {
        Cascading, // beside its parent, opened by clicking its entry
        Inline,    // inside its parent, opened and closed by clicking its entry
    };

    // The name of this run's folder under the build folder.
    virtual QString name() const = 0;
    virtual DesktopSession::Options sessionOptions() const = 0;
    // Starts the shell's programs in the running session; returns once its tray is up.
    virtual bool startShell(DesktopSession& session) = 0;
    // The accessible applications that draw the tray and its menus.
    virtual QStringList panelApplications() const = 0;
    virtual Submenus submenus() const { return Submenus::Cascading; }
    // Where the panel shows Quillmar's icon: by default the panel's object named "Quillmar".
    virtual std::optional<QRect> trayIcon();
    // Shows the panel's menu of the icon: a right click unless the shell says otherwise.
    virtual void openPanelMenu(QRect icon);
    // The gesture with which the shell activates an item: a left click unless it says otherwise.
    virtual void activate(QRect icon);
    // Whether the panel tells Quillmar when its menu closes (the "closed" event of the menu
    // protocol): else Quillmar cannot hold a refresh back for it.
    virtual bool announcesMenuClosing() const { return true; }
    // Closes the open menu as a person does when done with it: Escape unless the shell says
    // otherwise (own: Quillmar's own menu, else the panel's).
    virtual void dismissMenu(bool own);
    // Whether the wheel turned over the icon by the session's input reaches the item as a
    // Scroll call: a panel may act on smooth scrolling alone, which some input cannot give.
    virtual bool wheelScrollsItem() const { return true; }
    // Whether the panel shows an item's tooltip (else the icon's accessible name is its text).
    virtual bool showsTooltips() const { return true; }
    // Whether the tooltip's text is light on a dark ground.
    virtual bool darkTooltips() const { return true; }
    // The session's pointer and keyboard: the X server's unless the shell says otherwise.
    virtual DesktopInput& input() { return m_x11Input; }
    // Saves the whole screen as PNG; the X server's screen unless the shell says otherwise.
    virtual bool saveScreen(const QString& file);

    // On Wayland the compositor, not the program, decides where a window goes and whether it
    // gets the keyboard: a Wayland shell says what it did with Quillmar's windows.
    struct Window {
        QString title;
        // Its place on the screen, where the compositor tells; else only its size.
        QRect rect;
        bool focused = false;
        // Not tiled: of its own size.
        bool floating = true;
    };
    virtual QList<Window> ownWindows() const { return {}; }
    // Quillmar's own menus as read (none: all closed), moved to where they show: on Wayland Qt
    // knows where its windows are only relative to each other, so a Wayland shell moves them by
    // where its compositor put the menu's window.
    virtual QList<ScreenReader::Menu> placeOwnMenus(QList<ScreenReader::Menu> menus) {
        return menus;
    }
    // The panel's menus as read, moved to where they show: a shell whose accessible objects
    // give a menu's entries relative to the menu itself says where the menu is.
    virtual QList<ScreenReader::Menu> placePanelMenus(QList<ScreenReader::Menu> menus) {
        return menus;
    }
    // menus, each moved by offset.
    static QList<ScreenReader::Menu> moved(QList<ScreenReader::Menu> menus, QPoint offset);
    // A label as it is read on the screen: as the shell's accessible objects give it, or its
    // letters and digits where menus are read by OCR.
    virtual QString readAs(const QString& label) const;
    // Whether the shell's menus are read from the screen, each menu's window by OCR (the shell
    // does not expose them).
    virtual bool readsMenusByOcr() const { return false; }
    // The log of the program that draws the tray.
    virtual QString shellLog() const = 0;
    // Puts text on the clipboard from an outside program that stays its owner (wl-copy on
    // Wayland, xclip on X11) unless the shell says otherwise.
    virtual bool copyFromOutside(const QString& text);
    // The clipboard's text as an outside program reads it.
    virtual QString clipboard() const;
    // Whether Quillmar can read the clipboard while the panel's menu is open: not where only
    // the program with the keyboard focus may (Wayland without a clipboard protocol), there
    // "📋 Add Clipboard URL" stays enabled and reads the clipboard when chosen.
    virtual bool panelMenuSeesClipboard() const { return true; }
    // Whether the panel's menu lets every entry of a menu taller than the screen be reached
    // (scrolling, keys); where it does not, the user takes Quillmar's own menu (the
    // activation gesture), which does.
    virtual bool panelMenuReachesEveryEntry() const { return true; }
    // What Quillmar is known to get wrong on this desktop, not yet overcome, each described in
    // docs/desktops.md: the start of a failure's text, or the name of a test function that
    // cannot get past it. Reported, not counted; every other failure counts.
    virtual QStringList knownFailures() const { return {}; }

    // Where the screen differs from how it was before Quillmar first ran by an icon-sized
    // block, in the panels' strips (panelHeight high) along the top and bottom edges: for
    // shells that do not expose their tray's buttons.
    // Only left of x = leftOf: a clock right of the tray changes every minute.
    std::optional<QRect> iconByDifference(int panelHeight,
                                          int leftOf = std::numeric_limits<int>::max());

    DesktopSession& session() { return *m_session; }
    ScreenReader& reader() { return m_reader; }
    // Waits until the bus has a StatusNotifierWatcher with a host registered (the tray is up).
    static bool waitForTray(std::chrono::milliseconds timeout);
    // The items the panel's watcher lists: "service", "service/path" or "service@path".
    QStringList registeredItems() const;
    // Quillmar's StatusNotifierItem on the bus: (service, object path).
    std::optional<QPair<QString, QString>> registeredItem() const;
    // Waits until a program owns name on the session bus.
    static bool waitForName(const QString& name, std::chrono::milliseconds timeout);
    // Spins the event loop until condition holds; false when it did not in time.
    static bool waitUntil(const std::function<bool()>& condition,
                          std::chrono::milliseconds timeout = std::chrono::seconds(15));

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void iconShownWithTooltip();
    void panelMenuHasLayoutAndEveryItemWorks();
    void lazySubmenusFillOnFirstOpen();
    void clipboardItemFollowsClipboard();
    void refreshWaitsForOpenMenuToClose();
    void ownMenuOpensAtIconOrPointer();
    void ownMenuBehavesAsAMenu();
    void itemAnswersEveryCallOfTheProtocol();
    void tallMenuKeepsEveryItemReachable();
    void quietWhenStartedBeforeThePanel();
    void nothingOnStandardError();

private:
    enum class Account { NotSetUp, SetUp, Tall };

    // Runs Quillmar with the configuration of account and these arguments, starting it again
    // when it runs with others or has ended; returns once its menu is complete.
    bool runQuillmar(Account account, const QStringList& arguments = {});
    // Waits until the running Quillmar exports its whole menu.
    bool waitForFullMenu();
    bool setUpDesktopFiles();
    // Saves the whole screen; the file's path.
    QString screenshot(const QString& name);
    // The open menus of the panel (own: of Quillmar itself).
    QList<ScreenReader::Menu> openMenus(bool own = false);
    QList<ScreenReader::Menu> menusByOcr();
    // A menu's picture as OCR reads it best.
    static QImage forOcr(const QImage& menu);
    static QString ocrLabel(const QString& label);
    // The open menus once check holds for them; none when it does not in time.
    std::optional<QList<ScreenReader::Menu>>
    waitForMenus(const std::function<bool(const QList<ScreenReader::Menu>&)>& check,
                 bool own = false, std::chrono::milliseconds timeout = std::chrono::seconds(15));
    // waitForMenus for the panel's menus, once their entries have stopped moving.
    std::optional<QList<ScreenReader::Menu>>
    waitForSettledMenus(const std::function<bool(const QList<ScreenReader::Menu>&)>& check);
    // The open menus once the entry label shows in them, scrolled to where its menu scrolls;
    // none when it is not there.
    std::optional<QList<ScreenReader::Menu>> shownEntry(const QString& label, bool own = false);
    // Opens the panel's menu; the menu once it shows firstLabel at its top.
    std::optional<ScreenReader::Menu> openPanelMenuShowing(const QString& firstLabel);
    // Tells, in the test's output, what may have kept a click on the icon at clicked from
    // opening a menu; logOffset is the shell's log size before the click.
    void explainUnopenedMenu(QRect clicked, qint64 logOffset);
    QStringList readAs(QStringList labels) const;
    // Opens the submenu of the entry label of the open menus; the menus once one of them
    // shows expected.
    std::optional<QList<ScreenReader::Menu>> openSubmenu(const QString& label,
                                                         const QString& expected);
    // Clicks the entry label of the open menus; false when none shows it.
    bool choose(const QString& label, bool own = false);
    // Asks Quillmar over the bus to show its own menu; the menus once it shows.
    std::optional<QList<ScreenReader::Menu>> openOwnMenu();
    // Rests the pointer on the entry label of Quillmar's own menus, without a click; the menus
    // once one of them shows expected.
    std::optional<QList<ScreenReader::Menu>> hoverOwn(const QString& label,
                                                      const QString& expected);
    void closeMenus(bool own = false);
    bool settingsWindowShown() const;
    // The failures that are not known ones of this desktop; the known ones are reported.
    QStringList unknownFailures(const QStringList& failures) const;
    // Whether the running test function cannot get past a known failure here.
    bool knownToFail() const;
    // What is wrong with the window of Quillmar's own menu (of that size) that the compositor
    // shows, closing the menu; none when it is small, floating and has the keyboard.
    QString menuWindowProblem(const QString& how, QSize menu);
    // Asks the running Quillmar over the bus to show its menu, as a desktop's key binding does.
    static bool showMenuOverBus();
    // Requests of the tag list: one per build of the whole menu.
    int tagListRequests() const;
    // What the shell's log gained since it had offset characters.
    QString shellLogSince(qint64 offset) const;
    qint64 shellLogSize() const;

    std::unique_ptr<DesktopSession> m_session;
    X11Input m_x11Input;
    ScreenReader m_reader;
    std::unique_ptr<FakeRaindropService> m_service;
    TestHttpServer m_pages;
    TestHttpServer m_manifest;
    std::unique_ptr<QuillmarProcess> m_quillmar;
    std::optional<Account> m_account;
    QStringList m_arguments;
    // On X11 the next owner takes the clipboard before the last one is stopped.
    std::array<ChildProcess, 2> m_clipboardOwners;
    std::size_t m_clipboardOwner = 0;
    QString m_clipboardFile;
    int m_shots = 0;
    // How far one step of the wheel moved a scrolled part of a menu last time; 0: not seen yet.
    int m_wheelStep = 0;
    QImage m_beforeQuillmar;
    // The lines of text read on each picture of a menu, by the picture's digest.
    QHash<QByteArray, QList<ScreenReader::TextLine>> m_menuTexts;
    // Where the panel shows the running Quillmar's icon.
    std::optional<QRect> m_icon;
};
