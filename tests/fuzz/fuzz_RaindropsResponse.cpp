// A service answer to a raindrops request, as the network delivered it.
#include "FuzzInput.h"

#include "service/ListEnvelope.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)RaindropsResponse::decode(FuzzInput::bytes(data, size));
    return 0;
}
