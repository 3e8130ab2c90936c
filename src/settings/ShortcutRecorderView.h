#pragma once

#include <QObject>

class RecorderControl;
class SettingsViewModel;

// Ties a recorder to the model's openMenuShortcut both ways: the field shows the model's value
// whenever it changes, and a recording writes into the model at once, before any "Save".
class ShortcutRecorderView : public QObject {
    Q_OBJECT
public:
    // Lives as long as the control.
    ShortcutRecorderView(RecorderControl* control, SettingsViewModel* model);

private:
    void update();

    RecorderControl* m_control;
    SettingsViewModel* m_model;
};
