#pragma once

#include <QJsonValue>

#include <optional>

// Strict readers for decoded JSON values.
namespace JsonRead {

// A JSON number holding a whole value that fits in 64 bits. Integers written as such are taken
// exactly; a number in floating-point form counts only when it is whole and below 2^53, where
// doubles are still exact.
std::optional<qint64> integer(const QJsonValue& value);

} // namespace JsonRead
