"""A Qt window of text fields and others: qt.py FIFO. The first line of text has the focus; each line
that comes through the FIFO names what gets it next."""

import os
import sys

from PyQt6.QtCore import QSocketNotifier
from PyQt6.QtWidgets import (QApplication, QComboBox, QLineEdit, QPlainTextEdit, QPushButton,
                             QSpinBox, QTextEdit, QVBoxLayout, QWidget)

application = QApplication(sys.argv[:1])
window = QWidget()
fields = {
    "line": QLineEdit(),
    "password": QLineEdit(echoMode=QLineEdit.EchoMode.Password),
    "area": QTextEdit(),
    "plain": QPlainTextEdit(),
    "number": QSpinBox(),
    "combo": QComboBox(editable=True),
    "choice": QComboBox(),
    "readonly": QLineEdit(readOnly=True),
    "button": QPushButton("button"),
}
layout = QVBoxLayout(window)
for field in fields.values():
    layout.addWidget(field)
for name in ("combo", "choice"):
    fields[name].addItems(["one", "two"])
window.show()
fields["line"].setFocus()

names = os.fdopen(os.open(sys.argv[1], os.O_RDWR), "r")
commands = QSocketNotifier(names.fileno(), QSocketNotifier.Type.Read)
commands.activated.connect(lambda *_: fields[names.readline().strip()].setFocus())
application.exec()
