#pragma once

#include <QCoroTask>
#include <QString>

// A change asked of the bookmark service from a menu item. It runs in the background; a failure
// is told in an alert, the service's message behind the action's own words.
class ServiceAction {
public:
    // call: the request, already under way; failurePrefix: "Failed to save: ", for instance.
    static QCoro::Task<> run(QCoro::Task<void> call, QString failurePrefix);
};
