#pragma once

#include "config/Environment.h"
#include "service/RequestCanceller.h"

#include <QWidget>

#include <memory>

class QPushButton;
class SettingsViewModel;

// The settings window's content: the "General" and "Shortcuts" tabs above a divider and the
// "Save" button. It owns the one model that both tabs edit.
class SettingsView : public QWidget {
    Q_OBJECT
public:
    static constexpr int width = 500;
    static constexpr int height = 460;

    explicit SettingsView(const Environment& environment, QWidget* parent = nullptr);

    SettingsViewModel* vm() const { return m_vm; }

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void updateSaveButton();

    SettingsViewModel* m_vm;
    QPushButton* m_saveButton;
    // The load started when the view came on screen; it ends when the view leaves.
    std::shared_ptr<RequestCanceller> m_onScreenLoad;
};
