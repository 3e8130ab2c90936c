// Version texts from the manifest and the build, compared with each other.
#include "FuzzInput.h"

#include "update/VersionComparison.h"

#include <QStringList>

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Up to three versions, one per line.
    const QStringList versions = FuzzInput::text(data, size).split(QLatin1Char('\n'));
    const QString a = versions.value(0);
    const QString b = versions.value(1);
    const QString c = versions.value(2);

    FuzzInput::require(VersionComparison::compare(a, a) == 0, "a version equals itself");
    const int ab = sign(VersionComparison::compare(a, b));
    FuzzInput::require(ab == -sign(VersionComparison::compare(b, a)),
                       "swapping the versions reverses the order");
    FuzzInput::require(VersionComparison::isNewer(a, b) == (ab > 0), "newer means ordered after");
    const int bc = sign(VersionComparison::compare(b, c));
    const int ac = sign(VersionComparison::compare(a, c));
    if (ab <= 0 && bc <= 0)
        FuzzInput::require(ac <= 0, "the order is transitive");
    if (ab >= 0 && bc >= 0)
        FuzzInput::require(ac >= 0, "the order is transitive");
    return 0;
}
