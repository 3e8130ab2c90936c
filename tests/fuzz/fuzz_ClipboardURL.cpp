// Whatever text the user copied.
#include "FuzzInput.h"

#include "menu/ClipboardURL.h"

namespace {

// White space as the address pattern knows it: tab, line feed, form feed, carriage return and
// the separators (not the vertical tab or the next-line character).
bool isWhiteSpace(QChar c) {
    return c == u'\t' || c == u'\n' || c == u'\f' || c == u'\r' ||
           c.category() == QChar::Separator_Space || c.category() == QChar::Separator_Line ||
           c.category() == QChar::Separator_Paragraph;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = FuzzInput::text(data, size);
    const auto url = ClipboardURL::extract(text);
    if (!url)
        return 0;
    FuzzInput::require(url->startsWith(QLatin1StringView("http://")) ||
                           url->startsWith(QLatin1StringView("https://")),
                       "the address has the http or https scheme");
    FuzzInput::require(text.contains(*url), "the address is a part of the text");
    for (const QChar c : *url)
        FuzzInput::require(!isWhiteSpace(c), "the address holds no white space");
    return 0;
}
