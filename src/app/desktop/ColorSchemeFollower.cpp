#include "app/desktop/ColorSchemeFollower.h"

#include <QApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace {

const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString settingsInterface = u"org.freedesktop.portal.Settings"_s;
const QString appearance = u"org.freedesktop.appearance"_s;
const QString colorScheme = u"color-scheme"_s;

ColorSchemeFollower::Preference preferenceFrom(QVariant value) {
    // Read answers with the value wrapped in a second variant; the signal carries it once.
    while (value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    bool ok = false;
    const uint number = value.toUInt(&ok);
    // Unknown values mean no preference.
    if (!ok || number > 2)
        return ColorSchemeFollower::Preference::None;
    return ColorSchemeFollower::Preference(number);
}

} // namespace

ColorSchemeFollower::ColorSchemeFollower(QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus)) {
    // Listening first, so that no change between the question and its answer is missed. The slot
    // takes the whole message: one with a QDBusVariant parameter fails to connect while QtDBus
    // has not yet registered its types, as in a process that has sent no message so far.
    m_bus.connect(portalService, portalPath, settingsInterface, u"SettingChanged"_s, this,
                  SLOT(settingChanged(QDBusMessage)));
}

void ColorSchemeFollower::readPreference() {
    QDBusMessage read =
        QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface, u"Read"_s);
    read << appearance << colorScheme;
    // Not waited for: the portal may first have to be started.
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                // No portal, or one without the setting: the platform theme decides alone.
                const QDBusPendingReply<QDBusVariant> reply = *call;
                if (!reply.isError() && !m_heardChange)
                    apply(preferenceFrom(QVariant::fromValue(reply.value())));
                Q_EMIT preferenceRead();
            });
}

bool ColorSchemeFollower::isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightnessF() <
           palette.color(QPalette::WindowText).lightnessF();
}

QPalette ColorSchemeFollower::darkPalette() {
    // The colours of KDE's Breeze Dark, with a selection dark enough for white text and a link
    // light enough to be read at 4.5:1.
    const QColor window(0x2a, 0x2e, 0x32);
    const QColor text(0xfc, 0xfc, 0xfc);
    const QColor base(0x1b, 0x1e, 0x20);
    const QColor button(0x31, 0x36, 0x3b);
    const QColor highlight(0x2a, 0x7a, 0xb8);
    const QColor secondary(0xa1, 0xa9, 0xb1);
    const QColor disabled(0x6e, 0x71, 0x73);

    QPalette palette(button, window);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, QColor(0x23, 0x26, 0x29));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, button);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x3d, 0xae, 0xe9));
    palette.setColor(QPalette::LinkVisited, QColor(0x9b, 0x59, 0xb6));
    palette.setColor(QPalette::ToolTipBase, button);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, secondary);
    palette.setColor(QPalette::Light, QColor(0x40, 0x46, 0x4c));
    palette.setColor(QPalette::Midlight, QColor(0x36, 0x3b, 0x40));
    palette.setColor(QPalette::Mid, QColor(0x4d, 0x53, 0x59));
    palette.setColor(QPalette::Dark, QColor(0x1b, 0x1e, 0x20));
    palette.setColor(QPalette::Shadow, QColor(0x0e, 0x10, 0x12));
    for (const QPalette::ColorRole role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::HighlightedText})
        palette.setColor(QPalette::Disabled, role, disabled);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, button);
    return palette;
}

QPalette ColorSchemeFollower::lightPalette() {
    return QApplication::style()->standardPalette();
}

void ColorSchemeFollower::settingChanged(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() != 3 || arguments.at(0).toString() != appearance ||
        arguments.at(1).toString() != colorScheme)
        return;
    m_heardChange = true;
    apply(preferenceFrom(arguments.at(2)));
}

void ColorSchemeFollower::apply(Preference preference) {
    if (preference == m_preference)
        return;
    m_preference = preference;
    // Back to the platform theme's palette (an empty palette takes every colour from it), which
    // stays when it already is what the desktop prefers.
    QApplication::setPalette(QPalette());
    const QPalette theme = QApplication::palette();
    if (preference == Preference::Dark && !isDark(theme))
        QApplication::setPalette(darkPalette());
    else if (preference == Preference::Light && isDark(theme))
        QApplication::setPalette(lightPalette());
    Q_EMIT preferenceChanged();
}
