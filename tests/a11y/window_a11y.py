#!/usr/bin/python3
# The window as a screen reader and a keyboard user meet it: the built program
# on the simulator's demo cards, read through AT-SPI (run inside
# dbus-run-session under an X server) and driven by xdotool key events only.
#
#   window_a11y.py <build dir> <source dir> names de|en   every button's name
#   window_a11y.py <build dir> <source dir> rows          the card rows
#   window_a11y.py <build dir> <source dir> keyboard      every flow by keys
import os, re, subprocess, sys, tempfile, time

import pyatspi
from gi.repository import GLib

BUILD, SOURCE, MODE = sys.argv[1], sys.argv[2], sys.argv[3]
LANG = sys.argv[4] if len(sys.argv) > 4 else "de"
# Demo set in reader order: number, holder, type ("" for none).
DEMO = [("1204000000004711", "Maria Musterfrau", "vessa premium ACOS 04"),
        ("3014000000000815", "Max Mustermann", "vessa premium e-Card G4"),
        ("3002000000004242", "Erika Beispiel", "vessa premium e-Card G2"),
        ("1203000000001111", "Johann Österreicher", "vessa premium ACOS 03"),
        ("0000000000000000", "unbekannt", "vessa premium ACOS 05"),
        ("1203000000007777", "Franz Neubauer", "vessa premium ACOS 03")]
BUTTONS = ["Kartenliste neu laden", "6 stellige PIN ändern", "6 stellige PIN entsperren", "Zertifikat anzeigen",
           "Signatur testen", "4 stellige PIN ändern", "4 stellige PIN entsperren", "Zertifikat anzeigen",
           "Signatur testen", "4 stellige PIN ändern", "4 stellige PIN entsperren", "Infobox anzeigen"]
failures = []
announced = []


def check(ok, what):
    if not ok:
        failures.append(what)
        print("FAIL:", what, flush=True)


def english(text):
    po = open(os.path.join(SOURCE, "po/en.po"), encoding="utf-8").read()
    found = re.search(r'\nmsgid "%s"\nmsgstr "([^"]*)"' % re.escape(text), po)
    return found.group(1) if found else text


def pump(seconds):
    end = time.time() + seconds
    while time.time() < end:
        GLib.MainContext.default().iteration(False)
        time.sleep(0.02)


def wait_for(predicate, seconds=30):
    end = time.time() + seconds
    while time.time() < end:
        try:
            value = predicate()
        except Exception:
            value = None
        if value:
            return value
        pump(0.2)
    return None


def walk(node):
    yield node
    for child in node:
        if child is not None:
            yield from walk(child)


def find(root, role, name=None):
    return [o for o in walk(root) if o.getRoleName() == role and (name is None or o.name == name)]


def start_program(scratch):
    for folder in ("home", "etc", "tmp", "bin"):
        os.makedirs(os.path.join(scratch, folder))
    env = dict(os.environ, LD_LIBRARY_PATH=os.path.join(BUILD, "sim"), NO_AT_BRIDGE="0",
               HOME=os.path.join(scratch, "home"), KORVEX_ALLUSERS_DIR=os.path.join(scratch, "etc/"),
               TMPDIR=os.path.join(scratch, "tmp/"), VESSA_SIM_KEY_DIR=os.path.join(BUILD, "test-scratch/gui-sim-keys"),
               VESSA_SIM_STATE_DIR=os.path.join(scratch, "state"),
               VESSA_SIM_PINENTRY=os.path.join(SOURCE, "tests/support/fake-pinentry"),
               FAKE_PINENTRY_SCRIPT=os.path.join(scratch, "pins"),
               PATH=os.path.join(scratch, "bin") + ":" + os.environ["PATH"],
               LANG="en_US.UTF-8" if LANG == "en" else "de_AT.UTF-8", LANGUAGE="")
    env.pop("VESSA_SIM_CARDS", None)
    viewer = os.path.join(scratch, "bin/certViewerApp")
    with open(viewer, "w") as out:
        out.write('#!/bin/sh\ncp "$1" "%s/viewed.cer"\n' % scratch)
    os.chmod(viewer, 0o755)
    program = None

    def ready():
        nonlocal program
        # A fresh X server may refuse the first connection: start again.
        if program is None or program.poll() is not None:
            program = subprocess.Popen([os.path.join(BUILD, "program/VessaCards")], env=env)
            return None
        for app in pyatspi.Registry.getDesktop(0):
            # Only this run's program, whatever else the display shows.
            if app is not None and app.name == "VessaCards" and app.get_process_id() == program.pid:
                for frame in find(app, "frame"):
                    reload = [b for b in find(frame, "push button") if b.name == BUTTONS[0] or
                              b.name == english(BUTTONS[0])]
                    if reload and reload[0].getState().contains(pyatspi.STATE_SENSITIVE):
                        return app, frame
    found = wait_for(ready, 60)
    if not found:
        program.kill()
        sys.exit("the window did not come up with its cards")
    return program, found[0], found[1]


def names(frame):
    expected = BUTTONS if LANG == "de" else [english(text) for text in BUTTONS]
    shown = [b.name for b in find(frame, "push button")]
    check(shown == expected, "button names %s" % shown)
    for icon in find(frame, "icon"):
        if icon.getState().contains(pyatspi.STATE_SHOWING):
            check(icon.name != "", "an unnamed picture")


def rows(frame):
    tables = find(frame, "table") + find(frame, "tree table")
    check(len(tables) == 1, "one card table, found %d" % len(tables))
    if not tables:
        return
    table = tables[0].queryTable()
    read = [tuple(table.getAccessibleAt(r, c).name for c in range(4)) for r in range(table.nRows)]
    # The last card read is on top.
    check([r[:3] for r in read] == list(reversed(DEMO)), "rows %s" % read)
    check(all(r[3] != "" for r in read if r[0] != "0000000000000000"), "every card's validity")


def key(*keys):
    subprocess.run(["xdotool", "key", "--delay", "60"] + list(keys), check=True)
    pump(0.3)


def focused(app):
    return next((o for o in walk(app) if o.getState().contains(pyatspi.STATE_FOCUSED)), None)


def tab_to(app, name, limit=30):
    for _ in range(limit):
        # The focused object, or one of its parents: a list's rows are inside it.
        now, depth = focused(app), 0
        while now is not None and depth < 4:
            if now.name == name:
                return True
            now, depth = now.parent, depth + 1
        key("Tab")
    check(False, "Tab never reached " + name)
    return False


def windows(app):
    return [w for w in app if w is not None and w.getState().contains(pyatspi.STATE_SHOWING)]


def focus_window(title):
    # What a window manager does for a window that opens or comes back:
    # the X server alone leaves the keyboard where it was.
    ids = subprocess.run(["xdotool", "search", "--name", title], capture_output=True, text=True).stdout.split()
    if ids:
        subprocess.run(["xdotool", "windowfocus", "--sync", ids[-1]], check=False)
        pump(0.3)


def dialog_named(app, name):
    found = wait_for(lambda: next((w for w in windows(app) if name in w.name), None), 20)
    if found:
        focus_window(name)
    return found


def closes_with_escape(app, dialog, what):
    name = dialog.name
    key("Escape")
    check(wait_for(lambda: all(w.name != name for w in windows(app)), 10), what + " closes with Escape")
    focus_window("Kartenverwaltung")


def keyboard(app, frame, scratch):
    def on_showing(event):
        if event.detail1 and event.source.getRoleName() == "notification":
            announced.append(event.source.name)
    pyatspi.Registry.registerEventListener(on_showing, "object:state-changed:showing")
    focus_window("Kartenverwaltung")
    with open(os.path.join(scratch, "pins"), "w") as pins:
        pins.write("123456\n654321\n654321\n654321\n")
    # The first row is selected; its signature PIN is changed.
    tab_to(app, "6 stellige PIN ändern")
    key("Return")
    check(wait_for(lambda: "PIN Änderung erfolgreich!" in announced, 30), "PIN change announced %s" % announced)
    tab_to(app, "Zertifikat anzeigen")
    key("Return")
    check(wait_for(lambda: os.path.exists(os.path.join(scratch, "viewed.cer")), 20), "certificate shown")
    tab_to(app, "Signatur testen")
    key("Return")
    test = dialog_named(app, "Unterschriftentest")
    check(test is not None, "signature test opens")
    if test:
        tab_to(app, "Unterschreiben")
        key("Return")
        check(wait_for(lambda: "Signatur erfolgreich!" in announced, 30), "signature made %s" % announced)
        closes_with_escape(app, test, "signature test")
    # The popup from the card list: Shift+F10 and the menu key.
    tab_to(app, "Karten")
    key("shift+F10")
    check(wait_for(lambda: find(app, "menu item", "Diagnose"), 10), "Shift+F10 opens the popup")
    key("Escape")
    key("Menu")
    check(wait_for(lambda: find(app, "menu item", "Diagnose"), 10), "the menu key opens the popup")
    key("Up", "Return")
    diagnose = dialog_named(app, "Diagnose")
    check(diagnose is not None, "Diagnose opens from the popup")
    if diagnose:
        closes_with_escape(app, diagnose, "Diagnose")
    tab_to(app, "Infobox anzeigen")
    key("Return")
    infobox = dialog_named(app, "Infoboxbereich")
    check(infobox is not None, "infobox opens")
    if infobox:
        pump(1)
        closes_with_escape(app, infobox, "infobox")


def main():
    scratch = tempfile.mkdtemp(prefix="a11y-", dir=os.environ.get("TMPDIR", "/tmp"))
    program, app, frame = start_program(scratch)
    try:
        {"names": lambda: names(frame), "rows": lambda: rows(frame),
         "keyboard": lambda: keyboard(app, frame, scratch)}[MODE]()
    finally:
        program.terminate()
        program.wait(30)
    print("failures: %d" % len(failures))
    sys.exit(1 if failures else 0)


main()
