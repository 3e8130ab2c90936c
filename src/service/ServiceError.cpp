#include "service/ServiceError.h"

ServiceError::ServiceError(Kind kind, int code, QString message)
    : m_kind(kind)
    , m_code(code)
    , m_message(std::move(message))
    , m_what(m_message.toUtf8()) {}

QString ServiceError::domain() const {
    switch (m_kind) {
    case Kind::BadUrl:
    case Kind::Transport:
        return QStringLiteral("Network");
    case Kind::Decoding:
        return QStringLiteral("JSON");
    case Kind::Status:
        break;
    }
    return QStringLiteral("RaindropAPI");
}
