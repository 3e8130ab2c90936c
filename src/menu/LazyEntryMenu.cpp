#include "menu/LazyEntryMenu.h"

#include <QAction>
#include <QStyleOptionMenuItem>

LazyEntryMenu::LazyEntryMenu(const QString& title, const QString& placeholder,
                             MakeSubmenu makeSubmenu, QWidget* parent)
    : QMenu(title, parent)
    , m_makeSubmenu(std::move(makeSubmenu)) {
    setProperty("submenusOnDemand", true);
    setProperty("submenuPlaceholder", placeholder);
    // Qt announces the highlight before it looks for a submenu to open, for the pointer and the
    // keyboard alike; a panel highlights the entry (QAction::hover) before it asks for one.
    connect(this, &QMenu::hovered, this, &LazyEntryMenu::makeSubmenu);
}

LazyEntryMenu::~LazyEntryMenu() = default;

void LazyEntryMenu::makeSubmenu(QAction* entry) {
    // The menu also passes on the highlights of its submenus' items.
    if (entry->menu() || entry->isSeparator() || !entry->associatedObjects().contains(this))
        return;
    m_makeSubmenu(entry);
}

void LazyEntryMenu::initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const {
    QMenu::initStyleOption(option, action);
    // Drawn and measured with its submenu arrow before it has the submenu.
    if (!action->isSeparator() && option->menuItemType == QStyleOptionMenuItem::Normal)
        option->menuItemType = QStyleOptionMenuItem::SubMenu;
}
