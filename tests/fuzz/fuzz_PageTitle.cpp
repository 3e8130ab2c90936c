// A web page body, read whole or, as the title fetch does, cut off after some bytes.
#include "FuzzInput.h"

#include "menu/PageTitle.h"

#include <QStringDecoder>

namespace {

bool isUtf8(const QByteArray& bytes) {
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    // The decoder works when its result is converted to a string.
    const QString text = utf8.decode(bytes);
    return !utf8.hasError();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    // The first two bytes say where the body is cut; the rest is the body.
    const qsizetype cutAt = (data[0] << 8 | data[1]);
    const QByteArray body = FuzzInput::bytes(data + 2, size - 2);
    const QByteArray prefix = body.left(cutAt);

    const auto whole = PageTitle::extract(body);
    const auto early = PageTitle::extractFromPrefix(prefix);
    if (!early)
        return 0;
    FuzzInput::require(PageTitle::mayEndTitle(prefix, 0),
                       "a title is only complete after a closing title tag");
    // A body that is not UTF-8 as a whole is read as Latin-1, which the bytes before the cut
    // cannot know; for a UTF-8 body the early title must be the final one.
    if (isUtf8(body))
        FuzzInput::require(early == whole, "the title seen early is the title of the whole page");
    return 0;
}
