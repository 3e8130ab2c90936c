#include "service/RaindropAPI.h"

#include "service/HttpFetch.h"
#include "service/ListEnvelope.h"
#include "service/ServiceError.h"

#include <QJsonDocument>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString decodingFailed =
    u"The data couldn’t be read because it isn’t in the correct format."_s;
const QString bodyTooLarge = u"The data couldn’t be read because it is too large."_s;
const QString timedOut = u"The request timed out."_s;
const QString cancelled = u"The request was cancelled."_s;
const QString badUrl = u"bad URL"_s;

// Characters a query may hold unencoded (RFC 3986 query), less "&" in every part and less "="
// in names: the same rule as a URL-components facility applies to query items.
QByteArray encodeQueryPart(const QString& text, bool isName) {
    const QByteArray keep =
        isName ? QByteArrayLiteral("!$'()*+,;:@/?") : QByteArrayLiteral("!$'()*+,;=:@/?");
    return text.toUtf8().toPercentEncoding(keep);
}

QString encodeQuery(const QList<QPair<QString, QString>>& items) {
    QByteArray query;
    for (const auto& [name, value] : items) {
        if (!query.isEmpty())
            query += '&';
        query += encodeQueryPart(name, true) + '=' + encodeQueryPart(value, false);
    }
    return QString::fromLatin1(query);
}

QString sortKey(const QString& title) {
    return title.toLower().normalized(QString::NormalizationForm_C);
}

// Code-point order (not UTF-16 unit order, which differs above U+FFFF).
bool codePointLess(const QString& a, const QString& b) {
    const QList<uint> left = a.toUcs4();
    const QList<uint> right = b.toUcs4();
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
}

template <typename Envelope> auto decodeItems(const QByteArray& body) {
    auto envelope = Envelope::decode(body);
    if (!envelope)
        throw ServiceError(ServiceError::Kind::Decoding, 0, decodingFailed);
    return std::move(envelope->items);
}

} // namespace

std::shared_ptr<RaindropAPI> RaindropAPI::create(const QString& token, const QString& base,
                                                 std::chrono::milliseconds timeout) {
    return std::shared_ptr<RaindropAPI>(new RaindropAPI(token, base, timeout));
}

RaindropAPI::RaindropAPI(QString token, QString base, std::chrono::milliseconds timeout)
    : m_base(std::move(base))
    , m_token(token.trimmed())
    , m_timeout(timeout) {}

void RaindropAPI::authorize(QNetworkRequest& request) const {
    request.setRawHeader("Authorization", "Bearer " + m_token.toUtf8());
}

QCoro::Task<RaindropAPI::Answer> RaindropAPI::send(QNetworkRequest request, QByteArray verb,
                                                   QByteArray body, Canceller canceller) {
    // Redirects are refused: the token must never travel to another address.
    const HttpFetch::Limits limits{.idleTimeout = m_timeout, .bodyLimit = maximumBodySize};
    const HttpFetch::Result result =
        co_await HttpFetch::send(request, verb, body, limits, canceller);
    switch (result.outcome) {
    case HttpFetch::Result::Outcome::Answered:
        co_return Answer{result.status, result.body};
    case HttpFetch::Result::Outcome::TooLarge:
        throw ServiceError(ServiceError::Kind::Decoding, 0, bodyTooLarge);
    case HttpFetch::Result::Outcome::Cancelled:
        throw ServiceError(ServiceError::Kind::Transport, 0, cancelled);
    case HttpFetch::Result::Outcome::TimedOut:
        throw ServiceError(ServiceError::Kind::Transport, 0, timedOut);
    case HttpFetch::Result::Outcome::Failed:
        break;
    }
    throw ServiceError(ServiceError::Kind::Transport, 0, result.errorText);
}

QCoro::Task<QByteArray> RaindropAPI::fetch(QString path, QueryItems query, Canceller canceller) {
    auto self = shared_from_this();
    QUrl url(m_base + path, QUrl::StrictMode);
    // Checked before the query goes in: setting a part makes QUrl forget earlier parse errors.
    if (!url.isValid() || url.isRelative())
        throw ServiceError(ServiceError::Kind::BadUrl, 0, badUrl);
    if (!query.isEmpty())
        url.setQuery(encodeQuery(query), QUrl::StrictMode);

    QNetworkRequest request(url);
    authorize(request);
    const Answer answer = co_await send(request, QByteArrayLiteral("GET"), QByteArray(), canceller);
    if (answer.status == 401)
        throw ServiceError::status(401, u"Invalid API token — check your token and try again."_s);
    if (answer.status != 200)
        throw ServiceError::status(
            answer.status, u"Unexpected response from Raindrop (HTTP %1)."_s.arg(answer.status));
    co_return answer.body;
}

QCoro::Task<QList<Raindrop>> RaindropAPI::cachedFetch(QString key, QString path, QueryItems query) {
    auto self = shared_from_this();
    if (const auto cached = m_cache.constFind(key); cached != m_cache.cend())
        co_return *cached;
    const QByteArray body = co_await fetch(path, query, {});
    QList<Raindrop> items = decodeItems<RaindropsResponse>(body);
    m_cache.insert(key, items);
    co_return items;
}

QCoro::Task<QList<Collection>> RaindropAPI::fetchCollections(Canceller canceller) {
    auto self = shared_from_this();
    const QByteArray body = co_await fetch(u"/collections"_s, {}, canceller);
    QList<Collection> items = decodeItems<CollectionsResponse>(body);
    QList<QPair<QString, qsizetype>> keys;
    keys.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i)
        keys.append({sortKey(items[i].title), i});
    std::stable_sort(keys.begin(), keys.end(),
                     [](const auto& a, const auto& b) { return codePointLess(a.first, b.first); });
    QList<Collection> sorted;
    sorted.reserve(items.size());
    for (const auto& key : keys)
        sorted.append(items[key.second]);
    co_return sorted;
}

QCoro::Task<QList<Tag>> RaindropAPI::fetchTags(Canceller canceller) {
    auto self = shared_from_this();
    const QByteArray body = co_await fetch(u"/tags"_s, {}, canceller);
    QList<Tag> items = decodeItems<TagsResponse>(body);
    std::stable_sort(items.begin(), items.end(),
                     [](const Tag& a, const Tag& b) { return a.count > b.count; });
    co_return items;
}

QCoro::Task<QList<Raindrop>> RaindropAPI::fetchRecent() {
    auto self = shared_from_this();
    // Built before the co_await: g++ 12 cannot keep a braced list alive across a suspension.
    const QueryItems query{{u"sort"_s, u"-created"_s}, {u"perpage"_s, u"10"_s}};
    const QByteArray body = co_await fetch(u"/raindrops/0"_s, query, {});
    co_return decodeItems<RaindropsResponse>(body);
}

QCoro::Task<QList<Raindrop>> RaindropAPI::fetchFavourites() {
    return cachedFetch(
        favouritesKey(), u"/raindrops/0"_s,
        {{u"search"_s, u"[{\"key\":\"important\",\"val\":true}]"_s}, {u"perpage"_s, u"25"_s}});
}

QCoro::Task<QList<Raindrop>> RaindropAPI::fetchBookmarks(qint64 collectionId) {
    return cachedFetch(collectionKey(collectionId),
                       u"/raindrops/"_s + QString::number(collectionId), {{u"perpage"_s, u"50"_s}});
}

QCoro::Task<QList<Raindrop>> RaindropAPI::fetchBookmarksByTag(QString tag) {
    // The tag goes in as it is, without JSON escaping.
    const QString filter = u"[{\"key\":\"tag\",\"val\":\""_s + tag + u"\"}]"_s;
    return cachedFetch(tagKey(tag), u"/raindrops/0"_s,
                       {{u"search"_s, filter}, {u"perpage"_s, u"50"_s}});
}

QCoro::Task<void> RaindropAPI::write(QByteArray verb, QString path, QJsonObject body) {
    auto self = shared_from_this();
    const QUrl url(m_base + path, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative())
        throw ServiceError(ServiceError::Kind::BadUrl, 0, badUrl);

    QNetworkRequest request(url);
    authorize(request);
    request.setRawHeader("Content-Type", "application/json");
    const Answer answer =
        co_await send(request, verb, QJsonDocument(body).toJson(QJsonDocument::Compact), {});
    if (answer.status >= 200 && answer.status <= 299)
        co_return;
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(answer.body);
    if (utf8.hasError())
        text = u"(no body)"_s;
    throw ServiceError::status(answer.status, u"HTTP %1: "_s.arg(answer.status) + text);
}

QCoro::Task<void> RaindropAPI::setFavourite(qint64 id, bool important) {
    auto self = shared_from_this();
    QJsonObject body;
    body.insert(u"important"_s, important);
    co_await write(QByteArrayLiteral("PUT"), u"/raindrop/"_s + QString::number(id), body);
    m_cache.remove(favouritesKey());
}

QCoro::Task<void> RaindropAPI::createRaindrop(QString url, std::optional<QString> title) {
    QJsonObject body{{u"link"_s, url}, {u"collection"_s, QJsonObject{{u"$id"_s, 0}}}};
    if (title)
        body.insert(u"title"_s, *title);
    return write(QByteArrayLiteral("POST"), u"/raindrop"_s, body);
}
