#include "settings/ShortcutsTab.h"

#include "settings/RecorderControl.h"
#include "settings/SettingsStyle.h"
#include "settings/SettingsViewModel.h"
#include "settings/ShortcutRecorderView.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

ShortcutsTab::ShortcutsTab(SettingsViewModel* model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(20);

    auto* heading = new QLabel(u"Keyboard Shortcuts"_s, this);
    heading->setObjectName(u"shortcutsHeading"_s);
    heading->setFont(SettingsStyle::headlineFont(heading->font()));
    layout->addWidget(heading);

    auto* row = new QHBoxLayout();
    row->setSpacing(12);
    auto* name = new QLabel(u"Open menu"_s, this);
    name->setObjectName(u"openMenuLabel"_s);
    name->setFixedWidth(100);
    name->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    row->addWidget(name, 0, Qt::AlignVCenter);

    m_recorder = new RecorderControl(this);
    m_recorder->setObjectName(u"shortcutRecorder"_s);
    m_recorder->setAccessibleName(u"Open menu shortcut"_s);
    new ShortcutRecorderView(m_recorder, m_model);
    row->addWidget(m_recorder, 0, Qt::AlignVCenter);

    m_clearButton = new QPushButton(u"Clear"_s, this);
    m_clearButton->setObjectName(u"clearButton"_s);
    m_clearButton->setFlat(true);
    m_clearButton->setAccessibleName(u"Clear shortcut"_s);
    updateClearColor();
    connect(m_clearButton, &QPushButton::clicked, this,
            [this] { m_model->setOpenMenuShortcut(std::nullopt); });
    row->addWidget(m_clearButton, 0, Qt::AlignVCenter);
    row->addStretch(1);
    layout->addLayout(row);

    auto* help = new QLabel(u"Click the field and press a key combination to record a shortcut.\n"
                            u"Press Delete to clear, or Escape to cancel."_s,
                            this);
    help->setObjectName(u"shortcutsHelp"_s);
    help->setFont(SettingsStyle::captionFont(help->font()));
    help->setForegroundRole(SettingsStyle::secondaryRole);
    layout->addWidget(help);
    layout->addStretch(1);

    connect(m_model, &SettingsViewModel::openMenuShortcutChanged, this,
            &ShortcutsTab::updateClearButton);
    updateClearButton();
}

void ShortcutsTab::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        updateClearColor();
    QWidget::changeEvent(event);
}

void ShortcutsTab::updateClearColor() {
    SettingsStyle::setTextColor(m_clearButton, SettingsStyle::secondaryColor(palette()));
}

void ShortcutsTab::updateClearButton() {
    m_clearButton->setVisible(m_model->openMenuShortcut().has_value());
}
