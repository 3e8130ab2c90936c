#pragma once

#include <QObject>

// Lets the caller of a request abort it while it is in flight.
class RequestCanceller : public QObject {
    Q_OBJECT
public:
    void cancel();
    bool isCancelled() const { return m_cancelled; }

Q_SIGNALS:
    void cancelled();

private:
    bool m_cancelled = false;
};
