#include "settings/ShortcutRecorderView.h"

#include "settings/RecorderControl.h"
#include "settings/SettingsViewModel.h"

ShortcutRecorderView::ShortcutRecorderView(RecorderControl* control, SettingsViewModel* model)
    : QObject(control)
    , m_control(control)
    , m_model(model) {
    connect(control, &RecorderControl::changed, model, &SettingsViewModel::setOpenMenuShortcut);
    connect(model, &SettingsViewModel::openMenuShortcutChanged, this,
            &ShortcutRecorderView::update);
    update();
}

void ShortcutRecorderView::update() {
    m_control->setShortcut(m_model->openMenuShortcut());
}
