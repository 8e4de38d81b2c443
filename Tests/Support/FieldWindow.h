#pragma once

#include <string>

#include "Tests/Support/AccessibleDesktop.h"

namespace orvel {

// A window of a real program with text fields and other elements, on top of the others. One line of
// text, "line", has the keyboard focus when it appears, which takes the program its time.
class FieldWindow {
public:
    enum class Toolkit { gtk3, gtk4, qt, browser };

    FieldWindow(const AccessibleDesktop& desktop, Toolkit toolkit);
    ~FieldWindow();
    FieldWindow(const FieldWindow&) = delete;
    FieldWindow& operator=(const FieldWindow&) = delete;

    // "line", "password", "search", "area", "number", "readonly", "button", and what else the
    // program has; see FieldWindows/. In a browser by a click.
    void focus(const std::string& name);
    BackgroundProcess& process() { return *program; }

private:
    const std::string display;
    TemporaryFolder folder;
    int fifo = -1;
    std::unique_ptr<BackgroundProcess> program;
};

}  // namespace orvel
