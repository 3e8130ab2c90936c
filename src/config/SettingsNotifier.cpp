#include "config/SettingsNotifier.h"

SettingsNotifier& SettingsNotifier::instance() {
    static SettingsNotifier notifier;
    return notifier;
}

void SettingsNotifier::post() {
    Q_EMIT settingsChanged();
}
