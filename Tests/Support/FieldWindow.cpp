#include "Tests/Support/FieldWindow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "Tests/Support/XDesk.h"

namespace orvel {

namespace {

// The order of the page.
constexpr const char* webFields[] = {"line",   "password", "search", "area",   "edit",
                                     "number", "readonly", "button", "choice", "text"};
constexpr int webFieldHeight = 40;

std::vector<std::string> command(FieldWindow::Toolkit toolkit, const std::string& fifo,
                                 const std::string& profile) {
    const std::string files = ORVEL_FIELD_WINDOWS;
    // The system's own interpreter is the one that has the packages.
    const std::string python = "/usr/bin/python3";
    switch (toolkit) {
        case FieldWindow::Toolkit::gtk3:
            return {python, files + "/gtk.py", "3.0", fifo};
        case FieldWindow::Toolkit::gtk4:
            return {python, files + "/gtk.py", "4.0", fifo};
        case FieldWindow::Toolkit::qt:
            return {python, files + "/qt.py", fifo};
        case FieldWindow::Toolkit::browser:
            break;
    }
    return {"chromium",
            "--no-sandbox",
            "--disable-gpu",
            "--no-first-run",
            "--disable-background-networking",
            "--disable-component-update",
            "--password-store=basic",
            "--kiosk",
            "--user-data-dir=" + profile,
            "file://" + files + "/page.html"};
}

}  // namespace

FieldWindow::FieldWindow(const AccessibleDesktop& desktop, Toolkit toolkit)
    : display(desktop.display()) {
    const std::string pipe = folder / "names";
    if (toolkit != Toolkit::browser) {
        if (mkfifo(pipe.c_str(), 0600) != 0) throw std::runtime_error("no fifo");
        fifo = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    }
    program = std::make_unique<BackgroundProcess>(
        BackgroundProcess::Options{.command = command(toolkit, pipe, folder / "profile"),
                                   .environment = desktop.environment(),
                                   .outputFile = folder / "log"});
}

FieldWindow::~FieldWindow() {
    if (fifo >= 0) close(fifo);
}

void FieldWindow::focus(const std::string& name) {
    if (fifo >= 0) {
        const std::string text = name + '\n';
        if (write(fifo, text.data(), text.size()) != ssize_t(text.size())) {
            throw std::runtime_error("fifo");
        }
        return;
    }
    const auto place = std::find(std::begin(webFields), std::end(webFields), name);
    if (place == std::end(webFields)) throw std::runtime_error("no field " + name);
    const auto row = static_cast<int>(place - std::begin(webFields));
    XDesk(display).click(100, row * webFieldHeight + webFieldHeight / 2 - 2);
}

}  // namespace orvel
