#pragma once

#include <QCoroTask>
#include <QString>

#include <chrono>
#include <optional>

// Reads the title of the web page at an address, as a desktop browser would ask for the page,
// and only as far as its title.
class PageTitleReader {
public:
    static constexpr int maximumRedirects = 20;

    explicit PageTitleReader(std::chrono::milliseconds timeout)
        : m_timeout(timeout) {}

    // The page's title; none when the address is not absolute, the page cannot be read in time
    // or has no title. The title of an error page counts.
    QCoro::Task<std::optional<QString>> read(QString address) const;

private:
    static QCoro::Task<std::optional<QString>> read(QString address,
                                                    std::chrono::milliseconds timeout);

    std::chrono::milliseconds m_timeout;
};
