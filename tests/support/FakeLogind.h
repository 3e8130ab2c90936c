#pragma once

#include "FakeBusService.h"

// logind as a program sees it when it listens for sleep: the name org.freedesktop.login1 and the
// manager object's PrepareForSleep signal.
class FakeLogind : public FakeBusService {
public:
    explicit FakeLogind(const QString& busAddress);

    // PrepareForSleep(true): the machine is about to sleep; false: it has woken up.
    void prepareForSleep(bool sleeping);
};
