// Saves the configuration over and over, alternating between the two configurations in the
// files given, until it is killed. tst_SaveCrash kills it at random moments.
#include "config/AppConfig.h"

#include <QFile>

#include <cstdio>
#include <optional>

namespace {

std::optional<AppConfig> read(const char* path) {
    QFile file(QFile::decodeName(path));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return AppConfig::decode(file.readAll());
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s FIRST.json SECOND.json\n", argv[0]);
        return 2;
    }
    const std::optional<AppConfig> configs[] = {read(argv[1]), read(argv[2])};
    if (!configs[0] || !configs[1])
        return 2;
    for (unsigned long round = 0;; ++round) {
        if (configs[round % 2]->save())
            return 1;
        // Once the file exists the test may kill at any moment.
        if (round == 0) {
            std::puts("saving");
            std::fflush(stdout);
        }
    }
}
