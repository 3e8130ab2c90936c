// A service answer to a collections request, as the network delivered it.
#include "FuzzInput.h"

#include "service/ListEnvelope.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)CollectionsResponse::decode(FuzzInput::bytes(data, size));
    return 0;
}
