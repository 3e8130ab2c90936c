#include "menu/PageTitleReader.h"

#include "menu/PageTitle.h"
#include "service/HttpFetch.h"

#include <QNetworkRequest>
#include <QUrl>

namespace {

// A desktop browser's identity, so that sites serve the page a person would see.
const QByteArray browserUserAgent = QByteArrayLiteral(
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) "
    "Version/17.0 Safari/605.1.15");

} // namespace

QCoro::Task<std::optional<QString>> PageTitleReader::read(QString address) const {
    // Static, with the time-out by value: a reading outlives its reader.
    return read(std::move(address), m_timeout);
}

QCoro::Task<std::optional<QString>> PageTitleReader::read(QString address,
                                                          std::chrono::milliseconds timeout) {
    const QUrl url(address);
    if (!url.isValid() || url.isRelative())
        co_return std::nullopt;
    QNetworkRequest request(url);
    request.setRawHeader(QByteArrayLiteral("User-Agent"), browserUserAgent);

    // The page is read only as far as its title, and never beyond the read limit.
    std::optional<QString> title;
    const HttpFetch::Result result =
        co_await HttpFetch::get(request,
                                {.deadline = timeout,
                                 .bodyLimit = PageTitle::readLimit,
                                 .overLimit = HttpFetch::OverLimit::Cut,
                                 .redirects = HttpFetch::Redirects::FollowNoLessSafe,
                                 .maximumRedirects = maximumRedirects},
                                [&title](const QByteArray& body, qsizetype previousSize) {
                                    // "</title" may have begun in the bytes that came before.
                                    if (PageTitle::mayEndTitle(body, previousSize - 7))
                                        title = PageTitle::extractFromPrefix(body);
                                    return title.has_value();
                                });

    if (title)
        co_return title;
    if (!result.answered())
        co_return std::nullopt;
    if (result.cut)
        co_return PageTitle::extractFromPrefix(result.body);
    co_return PageTitle::extract(result.body);
}
