#pragma once

#include <QString>
#include <QStringList>

// A modal alert, as the program shows its messages: a bold message, an informative text below
// it, and buttons from left to right in the given order.
class Alert {
public:
    enum class Style { Informational, Warning };

    // Blocks (running the event loop) until a button is pressed; returns its index, 0 for the
    // first. Without buttons the alert has one "OK".
    static int run(const QString& message, const QString& informativeText, Style style,
                   const QStringList& buttons = {});
};
