"""A GTK window of text fields and others: gtk.py 3.0|4.0 FIFO. The first line of text has the focus;
each line that comes through the FIFO names what gets it next."""

import os
import sys

import gi

version, fifo = sys.argv[1:]
gi.require_version("Gtk", version)
from gi.repository import GLib, Gtk  # noqa: E402

is_new = version == "4.0"
if is_new:
    Gtk.init()
else:
    Gtk.init([])
box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL)
fields = {
    "line": Gtk.Entry(),
    "password": Gtk.PasswordEntry() if is_new else Gtk.Entry(visibility=False),
    "search": Gtk.SearchEntry(),
    "area": Gtk.TextView(),
    "number": Gtk.SpinButton.new_with_range(0, 9, 1),
    "readonly": Gtk.Entry(editable=False),
    "button": Gtk.Button(label="button"),
}
try:
    gi.require_version("Vte", "3.91" if is_new else "2.91")
    from gi.repository import Vte

    fields["terminal"] = Vte.Terminal()
except (ImportError, ValueError):
    pass
for field in fields.values():
    (box.append if is_new else box.add)(field)

window = Gtk.Window(title="fields")
(window.set_child if is_new else window.add)(box)
window.present() if is_new else window.show_all()
fields["line"].grab_focus()

names = os.fdopen(os.open(fifo, os.O_RDWR), "r")


def obey(*_):
    name = names.readline().strip()
    if name == "nothing":
        window.set_focus(None)
    elif name == "close":
        window.hide()
    else:
        fields[name].grab_focus()
    return True


GLib.io_add_watch(names.fileno(), GLib.PRIORITY_DEFAULT, GLib.IO_IN, obey)
GLib.MainLoop().run()
