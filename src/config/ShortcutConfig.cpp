#include "config/ShortcutConfig.h"

#include "config/JsonRead.h"

QString ShortcutConfig::displayString() const {
    QString text;
    if (modifierFlags & ControlFlag)
        text += QStringLiteral("⌃");
    if (modifierFlags & OptionFlag)
        text += QStringLiteral("⌥");
    if (modifierFlags & ShiftFlag)
        text += QStringLiteral("⇧");
    if (modifierFlags & CommandFlag)
        text += QStringLiteral("⌘");
    return text + displayKey;
}

QJsonObject ShortcutConfig::toJson() const {
    QJsonObject object;
    object.insert(QStringLiteral("displayKey"), displayKey);
    object.insert(QStringLiteral("keyCode"), qint64(keyCode));
    object.insert(QStringLiteral("modifierFlags"), qint64(modifierFlags));
    return object;
}

std::optional<ShortcutConfig> ShortcutConfig::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const auto keyCode = JsonRead::integer(object.value(QStringLiteral("keyCode")));
    const auto flags = JsonRead::integer(object.value(QStringLiteral("modifierFlags")));
    const QJsonValue displayKey = object.value(QStringLiteral("displayKey"));
    if (!keyCode || *keyCode < 0 || *keyCode > 0xFFFF || !flags || *flags < 0 ||
        !displayKey.isString())
        return std::nullopt;
    return ShortcutConfig{std::uint16_t(*keyCode), std::uint64_t(*flags), displayKey.toString()};
}
