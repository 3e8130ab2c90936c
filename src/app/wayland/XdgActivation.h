#pragma once

#include <QString>

class QWindow;

// Focus for this program's windows on Wayland. A compositor gives the keyboard to a window that
// asks with a token of the xdg-activation protocol; a panel hands one over with the click on the
// icon (the StatusNotifierItem's ProvideXdgActivationToken), a launcher to a program it starts
// (XDG_ACTIVATION_TOKEN). Tokens are used once.
class XdgActivation {
public:
    // Keeps token for the next window to be activated.
    static void setToken(const QString& token);
    // Asks the compositor to activate window with the kept token, once the window is on screen
    // (a compositor ignores the request for a window not yet mapped). Without a token nothing
    // is asked: a compositor gives a newly shown window the focus by itself.
    static void activateWhenShown(QWindow* window);
};
