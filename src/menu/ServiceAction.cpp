#include "menu/ServiceAction.h"

#include "app/alert/Alert.h"
#include "service/ServiceError.h"

#include <optional>

using namespace Qt::StringLiterals;

QCoro::Task<> ServiceAction::run(QCoro::Task<void> call, QString failurePrefix) {
    std::optional<QString> failure;
    try {
        co_await std::move(call);
    } catch (const ServiceError& error) {
        failure = error.message();
    }
    // The alert waits for the user: shown outside the handler, with the call finished.
    if (failure)
        Alert::run(u"Quillmar"_s, failurePrefix + *failure, Alert::Style::Warning);
}
