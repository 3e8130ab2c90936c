// A pointer device for a headless wlroots compositor (sway), which has none of its own: it
// creates a virtual pointer on the compositor's seat and moves and clicks it as told. Commands come
// from a named pipe, one command a line, answering each on standard output with "ok" once the
// compositor has handled it:
//
//     move X Y          absolute position in the output layout of the given size
//     press BUTTON      a Linux button code: 272 left, 273 right, 274 middle
//     release BUTTON
//     click BUTTON      press and release
//     scroll STEPS      turns the wheel: down by STEPS notches, up when negative
//
// Usage: quillmar-test-pointer WIDTH HEIGHT PIPE (the size of the output layout; the pipe is
// opened after "ready" is printed).

#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"

#include <wayland-client.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

struct Globals {
    wl_seat* seat = nullptr;
    zwlr_virtual_pointer_manager_v1* manager = nullptr;
};

void global(void* data, wl_registry* registry, uint32_t name, const char* interface,
            uint32_t version) {
    auto* globals = static_cast<Globals*>(data);
    if (std::strcmp(interface, wl_seat_interface.name) == 0 && !globals->seat)
        globals->seat =
            static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    else if (std::strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0)
        globals->manager = static_cast<zwlr_virtual_pointer_manager_v1*>(wl_registry_bind(
            registry, name, &zwlr_virtual_pointer_manager_v1_interface, version < 2 ? version : 2));
}

void globalRemove(void*, wl_registry*, uint32_t) {}

const wl_registry_listener registryListener = {global, globalRemove};

uint32_t now() {
    using namespace std::chrono;
    return static_cast<uint32_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s WIDTH HEIGHT PIPE\n", argv[0]);
        return 2;
    }
    const auto width = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10));
    const auto height = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
    wl_display* display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "cannot connect to the Wayland display\n");
        return 1;
    }
    Globals globals;
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, &globals);
    wl_display_roundtrip(display);
    if (!globals.manager || !globals.seat) {
        std::fprintf(stderr, "the compositor offers no virtual pointers\n");
        return 1;
    }
    zwlr_virtual_pointer_v1* pointer =
        zwlr_virtual_pointer_manager_v1_create_virtual_pointer(globals.manager, globals.seat);
    wl_display_roundtrip(display);
    std::cout << "ready" << std::endl;

    std::ifstream commands(argv[3]);
    std::string line;
    while (std::getline(commands, line)) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "move") {
            uint32_t x = 0;
            uint32_t y = 0;
            words >> x >> y;
            zwlr_virtual_pointer_v1_motion_absolute(pointer, now(), x, y, width, height);
            zwlr_virtual_pointer_v1_frame(pointer);
        } else if (command == "press" || command == "release" || command == "click") {
            uint32_t button = 0;
            words >> button;
            if (command != "release") {
                zwlr_virtual_pointer_v1_button(pointer, now(), button,
                                               WL_POINTER_BUTTON_STATE_PRESSED);
                zwlr_virtual_pointer_v1_frame(pointer);
            }
            if (command != "press") {
                zwlr_virtual_pointer_v1_button(pointer, now(), button,
                                               WL_POINTER_BUTTON_STATE_RELEASED);
                zwlr_virtual_pointer_v1_frame(pointer);
            }
        } else if (command == "scroll") {
            int steps = 0;
            words >> steps;
            // One notch at a time, as a wheel turns: 15 is one notch's distance.
            for (int notch = 0; notch < std::abs(steps); ++notch) {
                const int direction = steps < 0 ? -1 : 1;
                zwlr_virtual_pointer_v1_axis_source(pointer, WL_POINTER_AXIS_SOURCE_WHEEL);
                zwlr_virtual_pointer_v1_axis_discrete(pointer, now(),
                                                      WL_POINTER_AXIS_VERTICAL_SCROLL,
                                                      wl_fixed_from_int(15 * direction), direction);
                zwlr_virtual_pointer_v1_frame(pointer);
            }
        } else {
            std::cout << "unknown command" << std::endl;
            continue;
        }
        if (wl_display_roundtrip(display) < 0) {
            std::fprintf(stderr, "the compositor closed the connection\n");
            return 1;
        }
        std::cout << "ok" << std::endl;
    }
    zwlr_virtual_pointer_v1_destroy(pointer);
    zwlr_virtual_pointer_manager_v1_destroy(globals.manager);
    wl_display_disconnect(display);
    return 0;
}
