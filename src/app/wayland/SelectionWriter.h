#pragma once

#include <QByteArray>

// Hands what this program put on the clipboard to a program that reads it through a pipe.
class SelectionWriter {
public:
    // Writes all of data to fd, then closes fd: readers wait for the end of the data.
    static void writeAndClose(int fd, const QByteArray& data);
};
