#pragma once

#include "service/RequestCanceller.h"

#include <QByteArray>
#include <QCoroTask>
#include <QNetworkRequest>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

// One HTTP exchange over the shared session, the only way this program talks to a server: the
// request goes out, the answer is read within a time limit and a size limit, and the result
// says whether a server answered (with any status) or the exchange failed on the way.
class HttpFetch {
public:
    enum class Redirects {
        // A redirect is the answer: credentials never travel to another address.
        Refuse,
        // Followed to other hosts and from http to https, never from https down to http.
        FollowNoLessSafe,
    };
    enum class OverLimit {
        Fail, // a larger answer is not the one asked for
        Cut,  // the first bytes are enough: reading stops there
    };

    struct Limits {
        // The exchange fails when no byte has arrived for this long (zero: no such limit).
        std::chrono::milliseconds idleTimeout{0};
        // The exchange fails when the whole answer has not arrived by then (zero: no such
        // limit), so that a server sending a byte now and then cannot hold a caller either.
        std::chrono::milliseconds deadline{0};
        qint64 bodyLimit = 0;
        OverLimit overLimit = OverLimit::Fail;
        Redirects redirects = Redirects::Refuse;
        int maximumRedirects = 50;
    };

    struct Result {
        enum class Outcome {
            Answered,  // a server answered; status and body are its
            Failed,    // the connection failed (refused, reset, TLS, too many redirects)
            TimedOut,  // a time limit of Limits passed
            Cancelled, // the caller's canceller fired
            TooLarge,  // the body passed the limit, and OverLimit::Fail was asked for
        };
        Outcome outcome = Outcome::Failed;
        // The HTTP status when answered (0 when the answer was not HTTP).
        int status = 0;
        // As much of the body as was read: all of it, or the first bytes when cut or stopped.
        QByteArray body;
        // Whether the body stops at the limit (OverLimit::Cut).
        bool cut = false;
        // The network layer's description of a failure, in its words.
        QString errorText;

        bool answered() const { return outcome == Outcome::Answered; }
    };

    // Looks at the body read so far, which grew from previousSize; true ends the reading there
    // (the answer then counts as answered with the bytes read).
    using Enough = std::function<bool(const QByteArray& body, qsizetype previousSize)>;

    // verb "GET" with a null body sends none.
    static QCoro::Task<Result> send(QNetworkRequest request, QByteArray verb, QByteArray body,
                                    Limits limits, std::shared_ptr<RequestCanceller> canceller = {},
                                    Enough enough = {});
    static QCoro::Task<Result> get(QNetworkRequest request, Limits limits, Enough enough = {}) {
        return send(std::move(request), QByteArrayLiteral("GET"), QByteArray(), limits, {},
                    std::move(enough));
    }
};
