#include "app/wayland/SelectionWriter.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

void SelectionWriter::writeAndClose(int fd, const QByteArray& data) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags != -1)
        fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    qsizetype written = 0;
    while (written < data.size()) {
        const ssize_t n =
            ::write(fd, data.constData() + written, static_cast<size_t>(data.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        written += n;
    }
    ::close(fd);
}
