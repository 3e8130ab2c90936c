#pragma once

#include "app/StatusItem.h"
#include "config/AppConfig.h"
#include "config/Environment.h"

#include <QObject>

#include <memory>

// The application shell: the tray icon, the choice between the setup menu and the bookmark
// menu, and the reaction to saved settings.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(Environment environment = {}, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Called once the event loop is up.
    void applicationDidFinishLaunching();

    StatusItem* statusItem() const { return m_statusItem.get(); }

private:
    void showSetupPrompt();
    void start(const AppConfig& config);
    void settingsChanged();
    void openSettings();
    void chooseMenu(const AppConfig& config);

    Environment m_environment;
    std::unique_ptr<StatusItem> m_statusItem;
};
