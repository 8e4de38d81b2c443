#pragma once

#include <QApplication>

namespace orvel {

// The application object of a program that lives in the tray: no window's end is its end. One for
// each process, on its main thread, before everything else that is Qt's.
class PanelApplication {
public:
    PanelApplication();

private:
    // Qt keeps a reference to the count and the pointers.
    int count = 1;
    char name[12] = "orvel-agent";
    char* arguments[2] = {name, nullptr};
    QApplication application{count, arguments};
};

}  // namespace orvel
