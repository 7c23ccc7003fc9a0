#!/usr/bin/python3
# The built program on the demo cards as a screen reader reads it (AT-SPI, run
# inside dbus-run-session) and as a keyboard user drives it (xdotool keys only).
#   window_a11y.py <build dir> <source dir> names de|en | rows | keyboard
import os, re, shutil, subprocess, sys, tempfile, time
import pyatspi
from gi.repository import GLib

BUILD, SOURCE, MODE = sys.argv[1:4]
LANG = sys.argv[4] if len(sys.argv) > 4 else "de"
# Demo set in reader order: number, holder, type.
DEMO = [("1204000000004711", "Maria Musterfrau", "vessa premium ACOS 04"),
        ("3014000000000815", "Max Mustermann", "vessa premium e-Card G4"),
        ("3002000000004242", "Erika Beispiel", "vessa premium e-Card G2"),
        ("1203000000001111", "Johann Österreicher", "vessa premium ACOS 03"),
        ("0000000000000000", "unbekannt", "vessa premium ACOS 05"),
        ("1203000000007777", "Franz Neubauer", "vessa premium ACOS 03")]
BUTTONS = ["Kartenliste neu laden"] + ["6 stellige PIN ändern", "6 stellige PIN entsperren", "Zertifikat anzeigen",
           "Signatur testen", "4 stellige PIN ändern", "4 stellige PIN entsperren", "Zertifikat anzeigen",
           "Signatur testen", "4 stellige PIN ändern", "4 stellige PIN entsperren", "Infobox anzeigen"]
failures, announced = [], []


def check(ok, what):
    if not ok:
        failures.append(what)
        print("FAIL:", what, flush=True)


def english(text):
    po = open(os.path.join(SOURCE, "po/en.po"), encoding="utf-8").read()
    return re.search(r'\nmsgid "%s"\nmsgstr "([^"]*)"' % re.escape(text), po).group(1)


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


def walk(node):
    yield node
    for child in node:
        if child is not None:
            yield from walk(child)


def find(root, role, name=None):
    return [o for o in walk(root) if o.getRoleName() == role and name in (None, o.name)]


def start_program(scratch):
    for folder in ("home", "etc", "tmp", "bin"):
        os.makedirs(os.path.join(scratch, folder))
    env = dict(os.environ, LD_LIBRARY_PATH=os.path.join(BUILD, "sim"), NO_AT_BRIDGE="0",
               HOME=scratch + "/home", KORVEX_ALLUSERS_DIR=scratch + "/etc/", TMPDIR=scratch + "/tmp/",
               VESSA_SIM_KEY_DIR=BUILD + "/test-scratch/gui-sim-keys", VESSA_SIM_STATE_DIR=scratch + "/state",
               VESSA_SIM_PINENTRY=SOURCE + "/tests/support/fake-pinentry", FAKE_PINENTRY_SCRIPT=scratch + "/pins",
               PATH=scratch + "/bin:" + os.environ["PATH"], LANG="en_US.UTF-8" if LANG == "en" else "de_AT.UTF-8")
    env.pop("VESSA_SIM_CARDS", None)
    with open(scratch + "/bin/certViewerApp", "w") as viewer:
        viewer.write('#!/bin/sh\ncp "$1" "%s/viewed.cer"\n' % scratch)
    os.chmod(scratch + "/bin/certViewerApp", 0o755)
    program = None
    reload_names = (BUTTONS[0], english(BUTTONS[0]))

    def ready():
        nonlocal program
        # A fresh X server may refuse the first connection: start again.
        if program is None or program.poll() is not None:
            program = subprocess.Popen([BUILD + "/program/VessaCards"], env=env)
            return None
        for app in pyatspi.Registry.getDesktop(0):  # this run's program only
            if app is not None and app.get_process_id() == program.pid:
                for button in find(app, "push button"):
                    if button.name in reload_names and button.getState().contains(pyatspi.STATE_SENSITIVE):
                        return app, find(app, "frame")[0]
    found = wait_for(ready, 60)
    if not found:
        sys.exit("the window did not come up with its cards")
    return program, found[0], found[1]


def names(frame):
    expected = BUTTONS if LANG == "de" else [english(text) for text in BUTTONS]
    check([b.name for b in find(frame, "push button")] == expected, "button names")
    check(all(i.name for i in find(frame, "icon") if i.getState().contains(pyatspi.STATE_SHOWING)), "pictures")


def cell_text(cell):
    # A column of picture and text is one cell holding both, as GTK shows it.
    if cell.name:
        return cell.name
    return " ".join(c.name for c in cell if c is not None and c.name)


def rows(frame):
    tables = find(frame, "table") + find(frame, "tree table")
    check(len(tables) == 1, "one card table, found %d" % len(tables))
    if tables:
        table = tables[0].queryTable()
        read = [tuple(cell_text(table.getAccessibleAt(r, c)) for c in range(4)) for r in range(table.nRows)]
        # The last card read is on top; every personalised card has a validity.
        check([r[:3] for r in read] == list(reversed(DEMO)), "rows %s" % read)
        check(all(r[3] for r in read if r[0] != DEMO[4][0]), "validity")


def key(*keys):
    subprocess.run(["xdotool", "key", "--delay", "60"] + list(keys), check=True)
    pump(0.3)


def tab_to(app, name):
    for _ in range(30):
        # The focused object or a parent of it (a list's rows are inside it).
        now = next((o for o in walk(app) if o.getState().contains(pyatspi.STATE_FOCUSED)), None)
        for _ in range(4):
            if now is not None and now.name == name:
                return
            now = now.parent if now is not None else None
        key("Tab")
    check(False, "Tab never reached " + name)


def windows(app):
    return [w for w in app if w is not None and w.getState().contains(pyatspi.STATE_SHOWING)]


def focus_window(title):
    # What a window manager would do for a window that opens or comes back.
    ids = subprocess.run(["xdotool", "search", "--name", title], capture_output=True, text=True).stdout.split()
    if ids:
        subprocess.run(["xdotool", "windowfocus", "--sync", ids[-1]], check=False)
        pump(0.3)


def opens_and_closes_with_escape(app, title, keys_inside=()):
    dialog = wait_for(lambda: next((w for w in windows(app) if title in w.name), None), 20)
    check(dialog is not None, title + " opens")
    if dialog:
        focus_window(title)
        for step in keys_inside:
            step()
        shown = dialog.name  # the object is gone once the dialog is
        # A dialog still reading its card refuses to close; as a user would,
        # press Escape again until it has finished.
        def escape_closed():
            focus_window(shown)
            key("Escape")
            return wait_for(lambda: all(w.name != shown for w in windows(app)), 1)
        check(wait_for(escape_closed, 15), title + " closes with Escape")
        focus_window("Kartenverwaltung")


def keyboard(app, scratch):
    pyatspi.Registry.registerEventListener(
        lambda e: e.detail1 and e.source.getRoleName() == "notification" and announced.append(e.source.name),
        "object:state-changed:showing")
    focus_window("Kartenverwaltung")
    with open(scratch + "/pins", "w") as pins:
        pins.write("123456\n654321\n654321\n654321\n")
    # The first row is selected: its signature PIN, certificate and key.
    tab_to(app, "6 stellige PIN ändern")
    key("Return")
    check(wait_for(lambda: "PIN Änderung erfolgreich!" in announced), "PIN change announced %s" % announced)
    tab_to(app, "Zertifikat anzeigen")
    key("Return")
    check(wait_for(lambda: os.path.exists(scratch + "/viewed.cer"), 20), "certificate shown")
    tab_to(app, "Signatur testen")
    key("Return")
    opens_and_closes_with_escape(app, "Unterschriftentest", [
        lambda: tab_to(app, "Unterschreiben"), lambda: key("Return"),
        lambda: check(wait_for(lambda: "Signatur erfolgreich!" in announced), "signed %s" % announced)])
    tab_to(app, "Karten")
    key("shift+F10")
    check(wait_for(lambda: find(app, "menu item", "Diagnose"), 10), "Shift+F10 opens the popup")
    key("Escape", "Menu")
    check(wait_for(lambda: find(app, "menu item", "Diagnose"), 10), "the menu key opens the popup")
    key("Up", "Return")
    opens_and_closes_with_escape(app, "Diagnose")
    tab_to(app, "Infobox anzeigen")
    key("Return")
    opens_and_closes_with_escape(app, "Infoboxbereich")


scratch = tempfile.mkdtemp(prefix="a11y-", dir=os.environ.get("TMPDIR", "/tmp"))
program, app, frame = start_program(scratch)
try:
    {"names": lambda: names(frame), "rows": lambda: rows(frame), "keyboard": lambda: keyboard(app, scratch)}[MODE]()
finally:
    program.terminate()
    program.wait(30)
    shutil.rmtree(scratch, ignore_errors=True)
print("failures: %d" % len(failures))
sys.exit(1 if failures else 0)
