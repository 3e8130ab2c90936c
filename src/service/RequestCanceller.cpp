#include "service/RequestCanceller.h"

void RequestCanceller::cancel() {
    if (m_cancelled)
        return;
    m_cancelled = true;
    Q_EMIT cancelled();
}
