#pragma once

#include "service/RequestCanceller.h"

#include <QString>
#include <QWidget>

#include <memory>

class QPushButton;
class QTabWidget;
class SettingsViewModel;

// The settings window's content: the "General" and "Shortcuts" tabs above a divider and the
// "Save" button. It owns the one model that both tabs edit.
class SettingsView : public QWidget {
    Q_OBJECT
public:
    static constexpr int width = 500;
    static constexpr int height = 460;

    // The model talks to the service at apiBase; the token link leads into the web application
    // at webApp.
    SettingsView(const QString& apiBase, const QString& webApp, QWidget* parent = nullptr);

    SettingsViewModel* vm() const { return m_vm; }

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void updateSaveButton();
    // Colours and symbols taken from the palette, again whenever it changes.
    void updateLook();

    SettingsViewModel* m_vm;
    QTabWidget* m_tabs;
    QPushButton* m_saveButton;
    // The load started when the view came on screen; it ends when the view leaves.
    std::shared_ptr<RequestCanceller> m_onScreenLoad;
};
