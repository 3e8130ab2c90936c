#pragma once

#include <QWidget>

class QPushButton;
class RecorderControl;
class SettingsViewModel;

// The "Shortcuts" tab: the recorder for the shortcut that opens the menu, with "Clear".
class ShortcutsTab : public QWidget {
    Q_OBJECT
public:
    explicit ShortcutsTab(SettingsViewModel* model, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateClearColor();
    void updateClearButton();

    SettingsViewModel* m_model;
    RecorderControl* m_recorder;
    QPushButton* m_clearButton;
};
