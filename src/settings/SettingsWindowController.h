#pragma once

// The one settings window of the process.
class SettingsWindowController {
public:
    // Creates the window on first use, then shows it and brings it to the front.
    static void show();
};
