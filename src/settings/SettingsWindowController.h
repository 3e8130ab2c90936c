#pragma once

#include "config/Environment.h"

#include <QObject>
#include <QPointer>

class QAction;
class QMenuBar;
class SettingsView;

// The one settings window of the process. It is made on the first show and then only hidden
// and shown again, so the same view and model, with any unsaved edits, come back each time.
// While it is open the application has a main menu with "Quit Quillmar" and "Edit".
class SettingsWindowController : public QObject {
    Q_OBJECT
public:
    // The addresses the window's model talks to; call before the first show. Without a call the
    // shipped addresses are used.
    static void setEnvironment(const Environment& environment);
    // Creates the window on first use, installs the main menu, shows the window and brings it to
    // the front. Calling it while the window is open only brings it to the front.
    static void show();
    // The controller once show() has made it, otherwise null.
    static SettingsWindowController* shared();

    SettingsView* window() const { return m_window; }
    // The application's main menu while the window is open, otherwise null.
    QMenuBar* mainMenu() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    explicit SettingsWindowController(SettingsView* window);

    void installEditMenu();
    void removeMainMenu();

    SettingsView* m_window;
    QPointer<QMenuBar> m_mainMenu;
    QPointer<QAction> m_quitAction;
};
