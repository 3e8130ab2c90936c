#pragma once

#include <QKeySequence>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QAction;

// One menu entry as com.canonical.dbusmenu describes it: its kind (separator, submenu), label,
// flags and shortcut, in the names and notation that panels read.
class DBusMenuItemProperties {
public:
    // The property that makes an entry a submenu to the panel.
    static inline const QString childrenDisplay = QStringLiteral("children-display");
    // The properties that tell an entry's kind; a panel rebuilds an entry whose kind changes.
    static QStringList kinds();

    // The menu itself (id 0).
    static QVariantMap ofMenu();
    static QVariantMap ofEntry(const QAction* action);
    // The stand-in for the submenu of entry that is not made yet: one disabled entry with the
    // text of the holding menu's property "submenuPlaceholder" ("Loading…"), which the submenu
    // shows itself when made. No entry (it is gone): an empty label.
    static QVariantMap ofPlaceholder(const QAction* entry);
    // Those of properties that are named; all when names is empty.
    static QVariantMap chosen(const QVariantMap& properties, const QStringList& names);

    // A Qt menu text in the protocol's notation: "&&" is a plain "&", "&x" marks a mnemonic
    // ("_x"), and an underscore is written "__".
    static QString label(const QString& text);
    // A shortcut in the protocol's form: one list of key names per key press.
    static QList<QStringList> shortcut(const QKeySequence& sequence);

    static bool opensSubmenu(const QAction* action);
    // Whether action is an entry of a menu with the property "submenusOnDemand" that has not got
    // its submenu yet: the menu makes it when the entry is highlighted.
    static bool opensSubmenuOnDemand(const QAction* action);
};
