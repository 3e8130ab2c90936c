#include "settings/SettingsWindowController.h"

#include "app/tray/StatusItem.h"
#include "app/wayland/XdgActivation.h"
#include "settings/SettingsView.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Sends an editing command to the focused widget, as menu commands go to the first responder.
void sendToFocusWidget(const char* slot) {
    QWidget* focus = QApplication::focusWidget();
    if (!focus)
        return;
    const QByteArray signature = QByteArray(slot) + "()";
    if (focus->metaObject()->indexOfSlot(signature.constData()) >= 0)
        QMetaObject::invokeMethod(focus, slot);
}

} // namespace

SettingsWindowController::SettingsWindowController(QString apiBase, QString webApp, QObject* parent)
    : QObject(parent)
    , m_apiBase(std::move(apiBase))
    , m_webApp(std::move(webApp)) {}

SettingsWindowController::~SettingsWindowController() {
    // The main menu has no parent; the window goes after it, without telling this controller.
    delete m_mainMenu.data();
    if (m_window)
        m_window->removeEventFilter(this);
}

QMenuBar* SettingsWindowController::mainMenu() const {
    return m_mainMenu;
}

void SettingsWindowController::show() {
    if (!m_window)
        createWindow();
    installEditMenu();
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    // On Wayland the compositor gives the keyboard to a window that brings the token of the
    // click that asked for it (the panel's or the launcher's).
    XdgActivation::activateWhenShown(m_window->windowHandle());
}

void SettingsWindowController::createWindow() {
    auto view = std::make_unique<SettingsView>(m_apiBase, m_webApp);
    view->setObjectName(u"settingsWindow"_s);
    view->setWindowTitle(u"Quillmar Settings"_s);
    // Titled and closable only: no minimise or maximise button; the size is fixed.
    view->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                         Qt::WindowCloseButtonHint);
    // Closing hides the window; its views and model stay for the next show.
    view->setAttribute(Qt::WA_DeleteOnClose, false);
    view->setWindowIcon(StatusItem::dropIcon());
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen) {
        // The content is centred, as the platform centres windows; placing the frame there
        // instead would put the content half a title bar low.
        QRect content(QPoint(), QSize(SettingsView::width, SettingsView::height));
        content.moveCenter(screen->availableGeometry().center());
        view->setGeometry(content);
    }
    view->installEventFilter(this);
    m_window = std::move(view);
}

void SettingsWindowController::installEditMenu() {
    removeMainMenu();
    // Without a parent the menu bar is the application's main menu on platforms that have one
    // (the global menu of macOS). Linux desktops have none, so its quit command is also
    // attached to the window below, and the token field brings its own editing keys.
    m_mainMenu = new QMenuBar();
    m_mainMenu->setObjectName(u"mainMenu"_s);

    QMenu* application = m_mainMenu->addMenu(QString());
    m_quitAction = application->addAction(u"Quit Quillmar"_s);
    m_quitAction->setObjectName(u"quitAction"_s);
    m_quitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_quitAction->setMenuRole(QAction::QuitRole);
    connect(m_quitAction, &QAction::triggered, qApp, &QApplication::quit, Qt::QueuedConnection);
    m_window->addAction(m_quitAction);

    QMenu* edit = m_mainMenu->addMenu(u"Edit"_s);
    edit->setObjectName(u"editMenu"_s);
    const struct {
        QString title;
        QKeyCombination keys;
        const char* slot;
    } commands[] = {
        {u"Cut"_s, Qt::CTRL | Qt::Key_X, "cut"},
        {u"Copy"_s, Qt::CTRL | Qt::Key_C, "copy"},
        {u"Paste"_s, Qt::CTRL | Qt::Key_V, "paste"},
        {u"Select All"_s, Qt::CTRL | Qt::Key_A, "selectAll"},
    };
    for (const auto& command : commands) {
        QAction* action = edit->addAction(command.title);
        action->setShortcut(QKeySequence(command.keys));
        const char* slot = command.slot;
        connect(action, &QAction::triggered, action, [slot] { sendToFocusWidget(slot); });
    }
}

void SettingsWindowController::removeMainMenu() {
    if (m_quitAction)
        m_window->removeAction(m_quitAction);
    if (m_mainMenu)
        m_mainMenu->deleteLater();
    m_mainMenu = nullptr;
    m_quitAction = nullptr;
}

bool SettingsWindowController::eventFilter(QObject* watched, QEvent* event) {
    // Closing leaves the application without a main menu; unsaved edits stay in the model.
    if (watched == m_window.get() && event->type() == QEvent::Close)
        removeMainMenu();
    return false;
}
