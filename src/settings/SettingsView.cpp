#include "settings/SettingsView.h"

#include "settings/GeneralTab.h"
#include "settings/SettingsStyle.h"
#include "settings/SettingsViewModel.h"
#include "settings/ShortcutsTab.h"

#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QPushButton>
#include <QShowEvent>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SettingsView::SettingsView(const QString& apiBase, const QString& webApp, QWidget* parent)
    : QWidget(parent)
    , m_vm(new SettingsViewModel(apiBase, this)) {
    setFixedSize(width, height);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(u"settingsTabs"_s);
    m_tabs->setDocumentMode(true);
    auto* general = new GeneralTab(m_vm, webApp, m_tabs);
    general->setObjectName(u"generalTab"_s);
    m_tabs->addTab(general, u"General"_s);
    auto* shortcuts = new ShortcutsTab(m_vm, m_tabs);
    shortcuts->setObjectName(u"shortcutsTab"_s);
    m_tabs->addTab(shortcuts, u"Shortcuts"_s);
    m_tabs->tabBar()->setAccessibleName(u"Settings pages"_s);
    layout->addWidget(m_tabs, 1);

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
    saveRow->addWidget(m_saveButton);
    layout->addLayout(saveRow);

    connect(m_saveButton, &QPushButton::clicked, this, [this] {
        m_vm->save();
        window()->close();
    });
    connect(m_vm, &SettingsViewModel::tokenChanged, this, &SettingsView::updateSaveButton);
    updateSaveButton();
    updateLook();
}

void SettingsView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        updateLook();
    QWidget::changeEvent(event);
}

void SettingsView::updateLook() {
    // The drawn tab symbols take the text colour of the moment.
    m_tabs->setTabIcon(0, SettingsStyle::generalIcon());
    m_tabs->setTabIcon(1, SettingsStyle::shortcutsIcon());

    // Prominent: filled with the accent while it can be pressed, its text readable on it; a
    // ring in the text colour shows the keyboard focus.
    const SettingsStyle::ProminentColors colors = SettingsStyle::prominentColors(palette());
    const QPalette& p = palette();
    m_saveButton->setStyleSheet(
        u"QPushButton#saveButton { background-color: %1; color: %2; border: 2px solid %1;"
        u" border-radius: 6px; padding: 4px 16px; min-width: 48px; }"
        u"QPushButton#saveButton:pressed { background-color: %3; border-color: %3; }"
        u"QPushButton#saveButton:focus { border-color: %4; }"
        u"QPushButton#saveButton:disabled { background-color: %5; color: %6; border-color: %7; }"_s
            .arg(colors.fill.name(), colors.text.name(), colors.pressed.name(),
                 p.color(QPalette::WindowText).name(), p.color(QPalette::Button).name(),
                 p.color(QPalette::Disabled, QPalette::ButtonText).name(),
                 p.color(QPalette::Mid).name()));
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
