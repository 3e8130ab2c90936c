#include "settings/SettingsView.h"

#include "settings/GeneralTab.h"
#include "settings/SettingsStyle.h"
#include "settings/SettingsViewModel.h"
#include "settings/ShortcutsTab.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QPushButton>
#include <QShowEvent>
#include <QTabWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SettingsView::SettingsView(const Environment& environment, QWidget* parent)
    : QWidget(parent)
    , m_vm(new SettingsViewModel(environment, this)) {
    setFixedSize(width, height);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto* tabs = new QTabWidget(this);
    tabs->setObjectName(u"settingsTabs"_s);
    tabs->setDocumentMode(true);
    auto* general = new GeneralTab(m_vm, environment, tabs);
    general->setObjectName(u"generalTab"_s);
    tabs->addTab(general, SettingsStyle::generalIcon(), u"General"_s);
    auto* shortcuts = new ShortcutsTab(m_vm, tabs);
    shortcuts->setObjectName(u"shortcutsTab"_s);
    tabs->addTab(shortcuts, SettingsStyle::shortcutsIcon(), u"Shortcuts"_s);
    layout->addWidget(tabs, 1);

    auto* divider = new QFrame(this);
    divider->setObjectName(u"divider"_s);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    layout->addWidget(divider);

    auto* saveRow = new QHBoxLayout();
    saveRow->setContentsMargins(20, 12, 20, 12);
    saveRow->addStretch(1);
    m_saveButton = new QPushButton(u"Save"_s, this);
    m_saveButton->setObjectName(u"saveButton"_s);
    m_saveButton->setDefault(true);
    // Prominent: filled with the accent colour while it can be pressed.
    QPalette prominent = m_saveButton->palette();
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive}) {
        prominent.setColor(group, QPalette::Button, SettingsStyle::accentColor(palette()));
        prominent.setColor(group, QPalette::ButtonText,
                           palette().color(group, QPalette::HighlightedText));
    }
    m_saveButton->setPalette(prominent);
    saveRow->addWidget(m_saveButton);
    layout->addLayout(saveRow);

    connect(m_saveButton, &QPushButton::clicked, this, [this] {
        m_vm->save();
        window()->close();
    });
    connect(m_vm, &SettingsViewModel::tokenChanged, this, &SettingsView::updateSaveButton);
    updateSaveButton();
}

void SettingsView::updateSaveButton() {
    // The raw text counts: a token of spaces can be saved.
    m_saveButton->setEnabled(!m_vm->token().isEmpty());
}

void SettingsView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (event->spontaneous())
        return;
    m_onScreenLoad = std::make_shared<RequestCanceller>();
    m_vm->loadData(m_onScreenLoad);
}

void SettingsView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    if (event->spontaneous() || !m_onScreenLoad)
        return;
    m_onScreenLoad->cancel();
    m_onScreenLoad.reset();
}
