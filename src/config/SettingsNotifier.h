#pragma once

#include <QObject>

// The in-process "QuillmarSettingsChanged" notification: posted after the settings are saved,
// delivered synchronously to every receiver on the main thread.
class SettingsNotifier : public QObject {
    Q_OBJECT
public:
    static constexpr const char* name = "QuillmarSettingsChanged";

    static SettingsNotifier& instance();
    void post();

Q_SIGNALS:
    void settingsChanged();

private:
    SettingsNotifier() = default;
};
