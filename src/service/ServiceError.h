#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// The service client's one error value. Its message is what the user sees, behind the caller's
// own prefix; it never contains the token.
class ServiceError : public std::exception {
public:
    enum class Kind {
        BadUrl,    // the request address could not be formed
        Transport, // the HTTP layer failed: no network, time-out, TLS
        Decoding,  // a 200 body did not decode
        Status,    // the service answered with a status the operation does not accept
    };

    ServiceError(Kind kind, int code, QString message);

    static ServiceError status(int code, QString message) {
        return {Kind::Status, code, std::move(message)};
    }

    Kind kind() const { return m_kind; }
    // "RaindropAPI" for answers of the service; the layer's own name for the other kinds.
    QString domain() const;
    // The HTTP status for Kind::Status (0 when the answer was not HTTP); 0 otherwise.
    int code() const { return m_code; }
    QString message() const { return m_message; }
    const char* what() const noexcept override { return m_what.constData(); }

private:
    Kind m_kind;
    int m_code;
    QString m_message;
    QByteArray m_what;
};
