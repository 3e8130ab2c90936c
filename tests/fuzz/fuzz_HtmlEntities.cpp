// A page title as a web page may write it.
#include "FuzzInput.h"

#include "service/HtmlEntities.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = FuzzInput::text(data, size);
    const QString decoded = decodingHTMLEntities(text);
    // Every reference is longer than what replaces it (at most two UTF-16 units).
    FuzzInput::require(decoded.size() <= text.size(), "decoding never lengthens the text");
    return 0;
}
