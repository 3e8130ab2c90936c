#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

class QAction;
class QMenuBar;
class SettingsView;

// The settings window. It is made on the first show and then only hidden and shown again, so
// the same view and model, with any unsaved edits, come back each time; it goes with its
// controller. While it is open the application has a main menu with "Quit Quillmar" and "Edit".
class SettingsWindowController : public QObject {
    Q_OBJECT
public:
    // The window's model talks to the service at apiBase; its token link leads into the web
    // application at webApp.
    SettingsWindowController(QString apiBase, QString webApp, QObject* parent = nullptr);
    ~SettingsWindowController() override;

    // Creates the window on first use, installs the main menu, shows the window and brings it to
    // the front. Calling it while the window is open only brings it to the front.
    void show();

    // The window once show() has made it, otherwise null.
    SettingsView* window() const { return m_window.get(); }
    // The application's main menu while the window is open, otherwise null.
    QMenuBar* mainMenu() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void createWindow();
    void installEditMenu();
    void removeMainMenu();

    QString m_apiBase;
    QString m_webApp;
    std::unique_ptr<SettingsView> m_window;
    QPointer<QMenuBar> m_mainMenu;
    QPointer<QAction> m_quitAction;
};
