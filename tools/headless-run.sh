#!/usr/bin/env bash
# Shows Quillmar on a machine without a display: a virtual X server with a tray host, a click on
# the drop icon, and a screenshot of the open menu. Everything started here is stopped on exit.
set -euo pipefail

binary=$(realpath "$1")
screenshot=$2
work=$(mktemp -d)
chmod 700 "$work"
pids=()

cleanup() {
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill "${pids[i]}" 2>/dev/null || true
        wait "${pids[i]}" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

wait_for() { # tries a command for up to ten seconds
    for _ in $(seq 100); do
        if "$@" >/dev/null 2>&1; then return 0; fi
        sleep 0.1
    done
    echo "Gave up waiting for: $*" >&2
    return 1
}

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
pids+=($!)
wait_for test -s "$work/display"
export DISPLAY=":$(head -n1 "$work/display")"
export XDG_RUNTIME_DIR="$work"
unset WAYLAND_DISPLAY
wait_for xdpyinfo

eval "$(dbus-launch --sh-syntax)"
pids+=("$DBUS_SESSION_BUS_PID")

trayer --edge top --align right --width 10 --height 24 --transparent false 2>/dev/null &
pids+=($!)
wait_for xdotool search --onlyvisible --class trayer

"$binary" &
pids+=($!)
wait_for xdotool search --onlyvisible --classname quillmar
icon=$(xdotool search --onlyvisible --classname quillmar | head -n1)
eval "$(xdotool getwindowgeometry --shell "$icon")"
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2)) click 1
sleep 1
import -window root "$screenshot"
echo "Quillmar is running on a virtual display (there is no display here)."
echo "Its tray menu, opened with a click on the drop icon, is in $screenshot"
