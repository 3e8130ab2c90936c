// The configuration file as it may be found on disk: anything a user or a crash left there.
#include "FuzzInput.h"

#include "config/AppConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto config = AppConfig::decode(FuzzInput::bytes(data, size));
    if (!config)
        return 0;
    // What was read is written back unchanged by the next save.
    FuzzInput::require(AppConfig::decode(config->encode()) == config,
                       "a decoded configuration survives encode and decode");
    return 0;
}
