#!/usr/bin/python3
"""Reads what the desktop shows through the accessibility bus (AT-SPI) for a test.

    read-screen.py REQUESTS
    read-screen.py --once REQUEST...

Reads one request a line from the named pipe REQUESTS and answers each with one line of JSON on
standard output:

    menus [APP...]       the open menus (of the applications named; none named: of every
                         application): each with its application, its rectangle and its
                         entries (label, role, enabled, rectangle), in order
    find APP ROLE TEXT   the showing objects of application APP with that role (empty: any) and
                         that name (empty: any), each with its name and rectangle
    tooltips             the texts of the tooltips showing

With --once it answers the one request given by its words, reading everything afresh: a helper
that runs for long can miss objects that came after it started (embedded plugins' trees).

Some toolkits keep a popup menu out of the tree of their application (GTK 3 leaves out a menu
attached to a button, as panels' menus are), so menus are also collected from the events that
announce them as they are shown.
"""

import json
import os
import sys

import pyatspi
from gi.repository import Atspi, GLib

MENU_ROLES = {pyatspi.ROLE_MENU, pyatspi.ROLE_POPUP_MENU}
ENTRY_ROLES = {
    pyatspi.ROLE_MENU_ITEM: "item",
    pyatspi.ROLE_CHECK_MENU_ITEM: "item",
    pyatspi.ROLE_RADIO_MENU_ITEM: "item",
    pyatspi.ROLE_MENU: "submenu",
    pyatspi.ROLE_SEPARATOR: "separator",
}

# Menus and tooltips announced by events, oldest first.
announced = []


def rectangle(node):
    try:
        e = node.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        return [e.x, e.y, e.width, e.height]
    except Exception:
        return [0, 0, 0, 0]


def states(node):
    try:
        return node.getState()
    except Exception:
        return None


def showing(node):
    s = states(node)
    return s is not None and s.contains(pyatspi.STATE_SHOWING) and s.contains(pyatspi.STATE_VISIBLE)


def role(node):
    try:
        return node.getRole()
    except Exception:
        return None


def children(node):
    try:
        return [c for c in node if c is not None]
    except Exception:
        return []


def walk(node, depth=0):
    """Showing descendants, depth first; hidden subtrees are not visited."""
    if depth > 60:
        return
    for child in children(node):
        if showing(child):
            yield child
            yield from walk(child, depth + 1)


def text_of(node, depth=0):
    """A node's name, or the first name of its descendants (GNOME Shell names an entry's label,
    not the entry)."""
    if node.name:
        return node.name
    if depth < 4:
        for child in children(node):
            text = text_of(child, depth + 1)
            if text:
                return text
    return ""


def intersection(a, b):
    left, top = max(a[0], b[0]), max(a[1], b[1])
    right, bottom = min(a[0] + a[2], b[0] + b[2]), min(a[1] + a[3], b[1] + b[3])
    return [left, top, max(0, right - left), max(0, bottom - top)]


def clip_of(node):
    """The part of a node its containers show: its place within every container's."""
    view = rectangle(node)
    for _ in range(40):
        try:
            node = node.parent
        except Exception:
            break
        if node is None or role(node) == pyatspi.ROLE_APPLICATION:
            break
        place = rectangle(node)
        # Some containers have no place of their own.
        if place[2] > 0 and place[3] > 0:
            view = intersection(view, place)
    return view


def entry(node, view):
    s = states(node)
    label = text_of(node)
    kind = ENTRY_ROLES.get(role(node), "other")
    # GNOME Shell's separators are menu items without a label.
    if kind == "item" and not label:
        kind = "separator"
    return {
        "label": label,
        "role": kind,
        "enabled": bool(s and (s.contains(pyatspi.STATE_ENABLED) or s.contains(pyatspi.STATE_SENSITIVE))),
        "rect": rectangle(node),
        "view": view,
    }


def entries_of(menu, view=None):
    """A menu's entries: its showing menu-item descendants that are not inside another menu.
    Each has its view: the part of the menu it can show in, where its containers clip it (GNOME
    Shell draws a submenu of a tall menu as a scrolled area within it)."""
    if view is None:
        view = clip_of(menu)
    found = []
    for child in children(menu):
        r = role(child)
        if r in ENTRY_ROLES:
            if showing(child) or r == pyatspi.ROLE_SEPARATOR and rectangle(child)[3] > 0:
                found.append(entry(child, view))
        elif r not in MENU_ROLES and showing(child):
            # The box that holds the entries of a scrolled part moves as it scrolls, at the
            # height of the part that shows: its scrolling container clips, not the box.
            holds_entries = any(role(c) in ENTRY_ROLES for c in children(child))
            inner = view if holds_entries else intersection(view, rectangle(child))
            found.extend(entries_of(child, inner))
    return found


def application_of(node):
    try:
        return node.getApplication().name
    except Exception:
        return ""


def open_menus(applications):
    """Reading a whole desktop's tree takes long: only the applications asked for are read."""
    def wanted(name):
        return not applications or name in applications

    candidates = []
    for node in announced:
        if role(node) in MENU_ROLES and node not in candidates and wanted(application_of(node)):
            candidates.append(node)
    for app in children(pyatspi.Registry.getDesktop(0)):
        if not wanted(app.name):
            continue
        for node in walk(app):
            if role(node) in MENU_ROLES and node not in candidates:
                candidates.append(node)
            # Some toolkits (GNOME Shell's) give menu items no menu as their container: the
            # container of showing menu items is a menu too.
            elif role(node) in ENTRY_ROLES and role(node) != pyatspi.ROLE_SEPARATOR:
                try:
                    parent = node.parent
                except Exception:
                    parent = None
                if parent is not None and role(parent) not in ENTRY_ROLES and parent not in candidates:
                    candidates.append(parent)
    menus = []
    for node in candidates:
        if not showing(node):
            continue
        if role(node) not in MENU_ROLES and any(
                role(c) in MENU_ROLES and showing(c) for c in children(node)):
            continue
        items = entries_of(node)
        # An entry that opens a submenu has the menu role too: it counts as an open menu only
        # when entries of its own show.
        if any(i["rect"][2] > 0 and i["rect"][3] > 0 for i in items):
            menus.append({"application": application_of(node), "rect": rectangle(node),
                          "entries": items})
    return menus


def find(app_name, role_name, text):
    found = []
    for app in children(pyatspi.Registry.getDesktop(0)):
        if app.name != app_name:
            continue
        for node in walk(app):
            try:
                if role_name and node.getRoleName() != role_name:
                    continue
                if text and node.name != text:
                    continue
                found.append({"label": node.name, "role": node.getRoleName(),
                              "rect": rectangle(node)})
            except Exception:
                continue
    return found


def tooltips():
    texts = []
    for node in announced:
        if role(node) == pyatspi.ROLE_TOOL_TIP and showing(node):
            text = node.name or " ".join(c.name for c in walk(node) if c.name)
            texts.append(text)
    return texts


def on_event(event):
    node = event.source
    r = role(node)
    if r in MENU_ROLES or r == pyatspi.ROLE_TOOL_TIP:
        if node not in announced:
            announced.append(node)
    elif r in ENTRY_ROLES:
        try:
            parent = node.parent
        except Exception:
            parent = None
        if parent is not None and role(parent) in MENU_ROLES and parent not in announced:
            announced.append(parent)


def answer(request):
    # What was read for an earlier request may have changed since.
    for node in [pyatspi.Registry.getDesktop(0)] + announced:
        try:
            node.clear_cache()
        except Exception:
            pass
    read_states_live()
    words = request.split("\t")
    if words[0] == "menus":
        return open_menus(words[1:])
    if words[0] == "find" and len(words) == 4:
        return find(words[1], words[2], words[3])
    if words[0] == "tooltips":
        return tooltips()
    return {"error": "unknown request"}


def read_states_live():
    """Quillmar's entries' states are asked for at each reading: Qt tells no change of an
    entry's enabled state (a menu that follows the clipboard as it opens), so a cached one can
    be stale. Only there: asking every application anew is slow, and some never answer."""
    everything_but_states = (Atspi.Cache.PARENT | Atspi.Cache.CHILDREN | Atspi.Cache.NAME |
                             Atspi.Cache.DESCRIPTION | Atspi.Cache.ROLE |
                             Atspi.Cache.INTERFACES | Atspi.Cache.ATTRIBUTES)
    for app in children(pyatspi.Registry.getDesktop(0)):
        if app.name == "Quillmar":
            app.set_cache_mask(everything_but_states)


def main():
    if len(sys.argv) > 2 and sys.argv[1] == "--once":
        print(json.dumps(answer("\t".join(sys.argv[2:])), ensure_ascii=False))
        return 0
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    for kind in ("object:state-changed:showing", "object:state-changed:focused",
                 "object:state-changed:selected", "window:create"):
        pyatspi.Registry.registerEventListener(on_event, kind)
    # Opened read-write so that the pipe never reaches end-of-file between writers.
    fd = os.open(sys.argv[1], os.O_RDWR | os.O_NONBLOCK)
    pending = b""

    def readable(_source, _condition):
        nonlocal pending
        try:
            pending += os.read(fd, 65536)
        except BlockingIOError:
            return True
        while b"\n" in pending:
            line, pending = pending.split(b"\n", 1)
            try:
                result = answer(line.decode())
            except Exception as error:
                result = {"error": str(error)}
            print(json.dumps(result, ensure_ascii=False), flush=True)
        return True

    GLib.io_add_watch(fd, GLib.IO_IN, readable)
    print(json.dumps({"ready": True}), flush=True)
    pyatspi.Registry.start()
    return 0


if __name__ == "__main__":
    sys.exit(main())
