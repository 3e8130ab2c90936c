// The update manifest, or whatever page the maker's site answered with.
#include "FuzzInput.h"

#include "update/UpdateManifest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)UpdateManifest::parse(FuzzInput::bytes(data, size));
    return 0;
}
