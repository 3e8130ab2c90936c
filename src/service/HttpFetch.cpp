#include "service/HttpFetch.h"

#include "service/HttpSession.h"

#include <QCoroNetworkReply>
#include <QNetworkReply>
#include <QTimer>

namespace {

// Whether the exchange failed on the way rather than by the status that the server answered.
// Qt turns the HTTP statuses it dislikes into errors of its own: most 4xx into 201..299, 400 and
// 418 into ProtocolInvalidOperationError, 407 into ProxyAuthenticationRequiredError, 5xx into
// 401..499. Those are answers, which the caller judges by the status itself.
bool isTransportFailure(QNetworkReply::NetworkError error, bool hasStatus) {
    if (error == QNetworkReply::NoError)
        return false;
    const int code = int(error);
    const bool fromStatus = (code >= 200 && code < 300) || (code >= 400 && code < 500) ||
                            error == QNetworkReply::ProtocolInvalidOperationError ||
                            error == QNetworkReply::ProxyAuthenticationRequiredError;
    return !(hasStatus && fromStatus);
}

void configure(QNetworkRequest& request, const HttpFetch::Limits& limits) {
    if (limits.idleTimeout.count() > 0)
        request.setTransferTimeout(int(limits.idleTimeout.count()));
    if (limits.redirects == HttpFetch::Redirects::Refuse) {
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::ManualRedirectPolicy);
    } else {
        // (Qt's user-verified policy, which would follow https to http as well, lost the answer
        // now and then.)
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::NoLessSafeRedirectPolicy);
        request.setMaximumRedirectsAllowed(limits.maximumRedirects);
    }
}

} // namespace

QCoro::Task<HttpFetch::Result> HttpFetch::send(QNetworkRequest request, QByteArray verb,
                                               QByteArray body, Limits limits,
                                               std::shared_ptr<RequestCanceller> canceller,
                                               Enough enough) {
    using Outcome = Result::Outcome;
    configure(request, limits);
    Result result;
    // A cancel that came before the request sends nothing at all.
    if (canceller && canceller->isCancelled()) {
        result.outcome = Outcome::Cancelled;
        co_return result;
    }

    QNetworkAccessManager& session = HttpSession::shared();
    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)> reply(
        body.isNull() ? session.sendCustomRequest(request, verb)
                      : session.sendCustomRequest(request, verb, body),
        [](QNetworkReply* r) { r->deleteLater(); });
    QNetworkReply* raw = reply.get();

    bool timedOut = false;
    if (limits.deadline.count() > 0) {
        // A child of the reply: it goes with the reply instead of waking the program when due.
        auto* deadline = new QTimer(raw);
        deadline->setSingleShot(true);
        QObject::connect(deadline, &QTimer::timeout, raw, [raw, &timedOut] {
            timedOut = true;
            raw->abort();
        });
        deadline->start(limits.deadline);
    }
    if (canceller)
        QObject::connect(canceller.get(), &RequestCanceller::cancelled, raw, &QNetworkReply::abort);

    // Reading ends early when the caller has enough or the first bytes are all it wants; the
    // reply is then aborted from the event loop, so that the awaiting coroutine does not resume
    // inside this signal.
    bool tooLarge = false;
    bool stopped = false;
    const auto stop = [raw, &stopped] {
        stopped = true;
        QMetaObject::invokeMethod(raw, &QNetworkReply::abort, Qt::QueuedConnection);
    };
    // Whether the body read so far passed the limit: it is then cut there or too large.
    const auto passedLimit = [&result, &limits, &tooLarge] {
        if (result.body.size() <= limits.bodyLimit)
            return false;
        result.body.truncate(limits.bodyLimit);
        (limits.overLimit == OverLimit::Cut ? result.cut : tooLarge) = true;
        return true;
    };
    if (enough || limits.overLimit == OverLimit::Cut) {
        QObject::connect(raw, &QNetworkReply::readyRead, raw, [&, raw] {
            if (stopped)
                return;
            const qsizetype previousSize = result.body.size();
            result.body += raw->readAll();
            if (passedLimit() || (enough && enough(result.body, previousSize)))
                stop();
        });
    } else {
        // The body is taken whole at the end; only its size is watched on the way.
        QObject::connect(raw, &QNetworkReply::downloadProgress, raw,
                         [raw, &tooLarge, &limits](qint64 received) {
                             if (received > limits.bodyLimit && !tooLarge) {
                                 tooLarge = true;
                                 raw->abort();
                             }
                         });
    }

    if (!raw->isFinished())
        co_await qCoro(raw).waitForFinished();

    const QVariant status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    result.status = status.isValid() ? status.toInt() : 0;
    const QNetworkReply::NetworkError error = raw->error();
    if (tooLarge) {
        result.outcome = Outcome::TooLarge;
    } else if (stopped) {
        result.outcome = Outcome::Answered;
    } else if (canceller && canceller->isCancelled()) {
        result.outcome = Outcome::Cancelled;
    } else if (timedOut || error == QNetworkReply::OperationCanceledError) {
        // Qt's idle time-out aborts the reply as a cancel would.
        result.outcome = Outcome::TimedOut;
    } else if (isTransportFailure(error, status.isValid())) {
        result.outcome = Outcome::Failed;
        result.errorText = raw->errorString();
    } else {
        result.body += raw->readAll();
        result.outcome = passedLimit() && tooLarge ? Outcome::TooLarge : Outcome::Answered;
    }
    if (result.outcome != Outcome::Answered)
        result.body.clear();
    co_return result;
}
