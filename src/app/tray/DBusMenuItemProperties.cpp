#include "app/tray/DBusMenuItemProperties.h"

#include <QAction>
#include <QMenu>

#include <algorithm>

using namespace Qt::StringLiterals;

QStringList DBusMenuItemProperties::kinds() {
    return {u"type"_s, childrenDisplay};
}

QVariantMap DBusMenuItemProperties::ofMenu() {
    return {{childrenDisplay, u"submenu"_s}};
}

QVariantMap DBusMenuItemProperties::ofEntry(const QAction* action) {
    QVariantMap properties;
    if (action->isSeparator()) {
        properties.insert(u"type"_s, u"separator"_s);
    } else {
        properties.insert(u"label"_s, label(action->text()));
        properties.insert(u"enabled"_s, action->isEnabled());
        if (opensSubmenu(action))
            properties.insert(childrenDisplay, u"submenu"_s);
        if (!action->shortcut().isEmpty())
            properties.insert(u"shortcut"_s, QVariant::fromValue(shortcut(action->shortcut())));
    }
    properties.insert(u"visible"_s, action->isVisible());
    return properties;
}

QVariantMap DBusMenuItemProperties::ofPlaceholder(const QAction* entry) {
    QString text;
    if (entry) {
        const QList<QObject*> holders = entry->associatedObjects();
        for (const QObject* holder : holders)
            if (text.isEmpty())
                text = holder->property("submenuPlaceholder").toString();
    }
    return {{u"label"_s, label(text)}, {u"enabled"_s, false}, {u"visible"_s, true}};
}

QVariantMap DBusMenuItemProperties::chosen(const QVariantMap& properties,
                                           const QStringList& names) {
    if (names.isEmpty())
        return properties;
    QVariantMap chosen;
    for (const QString& name : names)
        if (properties.contains(name))
            chosen.insert(name, properties.value(name));
    return chosen;
}

QString DBusMenuItemProperties::label(const QString& text) {
    QString label;
    label.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        QChar c = text[i];
        if (c == u'&' && i + 1 < text.size()) {
            c = text[++i];
            // "&&" is a plain "&"; "&x" marks x as the mnemonic.
            if (c != u'&')
                label.append(u'_');
        }
        if (c == u'_')
            label.append(u"__"_s);
        else
            label.append(c);
    }
    return label;
}

QList<QStringList> DBusMenuItemProperties::shortcut(const QKeySequence& sequence) {
    QList<QStringList> presses;
    for (int i = 0; i < sequence.count(); ++i) {
        QStringList keys =
            QKeySequence(sequence[i]).toString(QKeySequence::PortableText).split(u'+');
        // "Ctrl++" splits into an empty last part.
        if (keys.size() > 1 && keys.constLast().isEmpty()) {
            keys.removeLast();
            keys.last() = u"plus"_s;
        }
        for (QString& key : keys) {
            if (key == u"Ctrl"_s)
                key = u"Control"_s;
            else if (key == u"Meta"_s)
                key = u"Super"_s;
        }
        presses.append(keys);
    }
    return presses;
}

bool DBusMenuItemProperties::opensSubmenu(const QAction* action) {
    return action->menu() || opensSubmenuOnDemand(action);
}

bool DBusMenuItemProperties::opensSubmenuOnDemand(const QAction* action) {
    if (action->menu() || action->isSeparator())
        return false;
    const QList<QObject*> holders = action->associatedObjects();
    return std::any_of(holders.cbegin(), holders.cend(), [](const QObject* holder) {
        return qobject_cast<const QMenu*>(holder) && holder->property("submenusOnDemand").toBool();
    });
}
