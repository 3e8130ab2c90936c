#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Helpers shared by the fuzzers.
namespace FuzzInput {

// A copy of the input: Qt may rely on the terminating zero that a QByteArray carries.
inline QByteArray bytes(const std::uint8_t* data, std::size_t size) {
    return QByteArray(reinterpret_cast<const char*>(data), qsizetype(size));
}

inline QString text(const std::uint8_t* data, std::size_t size) {
    return QString::fromUtf8(bytes(data, size));
}

// A broken promise of the code under test counts as a crash, so libFuzzer keeps the input.
inline void require(bool condition, const char* promise) {
    if (condition)
        return;
    std::fprintf(stderr, "Broken promise: %s\n", promise);
    std::abort();
}

} // namespace FuzzInput
