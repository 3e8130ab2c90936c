#include "app/desktop/DesktopApplicationAdaptor.h"

#include <QDBusError>
#include <QGuiApplication>

#include <utility>

DesktopApplicationAdaptor::DesktopApplicationAdaptor(QObject* parent, QDBusConnection bus)
    : QDBusAbstractAdaptor(parent)
    , m_bus(std::move(bus)) {}

void DesktopApplicationAdaptor::setMenuAction(std::function<void()> action) {
    m_menuAction = std::move(action);
}

void DesktopApplicationAdaptor::setSettingsAction(
    std::function<void(const QString& activationToken)> action) {
    m_settingsAction = std::move(action);
}

QString DesktopApplicationAdaptor::activationToken(const QVariantMap& platformData, bool wayland) {
    // Senders put a string or, as some terminals do, a byte string.
    const auto text = [&platformData](const QString& key) {
        const QVariant value = platformData.value(key);
        if (value.metaType().id() == QMetaType::QByteArray)
            return QString::fromUtf8(value.toByteArray()).section(QChar(u'\0'), 0, 0);
        return value.metaType().id() == QMetaType::QString ? value.toString() : QString();
    };
    if (const QString token = text(QStringLiteral("activation-token")); !token.isEmpty())
        return token;
    return wayland ? text(QStringLiteral("desktop-startup-id")) : QString();
}

void DesktopApplicationAdaptor::Activate(const QVariantMap& platformData) {
    Q_UNUSED(platformData)
    later(m_menuAction);
}

void DesktopApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& platformData) {
    Q_UNUSED(uris)
    Activate(platformData);
}

void DesktopApplicationAdaptor::ActivateAction(const QString& name, const QVariantList& parameter,
                                               const QVariantMap& platformData,
                                               const QDBusMessage& message) {
    const bool known = name == openMenuAction() || name == settingsAction();
    if (!known || !parameter.isEmpty()) {
        // Instead of the empty answer Qt would send on return.
        message.setDelayedReply(true);
        m_bus.send(message.createErrorReply(
            QDBusError::InvalidArgs,
            known ? QStringLiteral("The action \"%1\" takes no parameter").arg(name)
                  : QStringLiteral("Quillmar has no action \"%1\"; it has \"%2\" and \"%3\"")
                        .arg(name, openMenuAction(), settingsAction())));
        return;
    }
    if (name == openMenuAction()) {
        later(m_menuAction);
        return;
    }
    const QString token = activationToken(
        platformData, QGuiApplication::platformName().startsWith(QStringLiteral("wayland")));
    later([this, token] {
        if (m_settingsAction)
            m_settingsAction(token);
    });
}

void DesktopApplicationAdaptor::later(std::function<void()> work) {
    // The caller gets its answer first, as with ShowMenu.
    QMetaObject::invokeMethod(
        this,
        [work = std::move(work)] {
            if (work)
                work();
        },
        Qt::QueuedConnection);
}
