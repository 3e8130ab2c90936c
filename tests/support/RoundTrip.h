#pragma once

#include "service/RaindropAPI.h"
#include "service/ServiceError.h"

#include <QCoroTask>

#include <memory>

namespace RoundTripDetail {

// QCoro::waitFor never returns from a task that throws, so the error is caught in here.
inline QCoro::Task<> askForTags(std::shared_ptr<RaindropAPI> api) {
    try {
        co_await api->fetchTags();
    } catch (const ServiceError&) {
        // Only that the answer came counts.
    }
}

} // namespace RoundTripDetail

// Asks for the tags through api and waits for the answer, whatever it is: by then whatever that
// client sent before has reached the server, and whatever the server answered before has been
// read. Tests wait on it to see that something did not happen.
inline void roundTrip(const std::shared_ptr<RaindropAPI>& api) {
    QCoro::waitFor(RoundTripDetail::askForTags(api));
}
