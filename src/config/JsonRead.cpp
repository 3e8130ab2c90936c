#include "config/JsonRead.h"

#include <QVariant>

#include <cmath>

std::optional<qint64> JsonRead::integer(const QJsonValue& value) {
    if (value.type() != QJsonValue::Double)
        return std::nullopt;
    const QVariant variant = value.toVariant();
    if (variant.typeId() == QMetaType::LongLong)
        return variant.toLongLong();
    const double number = value.toDouble();
    constexpr double exactLimit = 9007199254740992.0; // 2^53
    if (std::isfinite(number) && std::trunc(number) == number && std::fabs(number) <= exactLimit)
        return qint64(number);
    return std::nullopt;
}
