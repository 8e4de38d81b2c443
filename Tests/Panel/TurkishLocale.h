#pragma once

#include <fstream>

#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

// The C library's Turkish, made where the machine has none. With LOCPATH and LC_ALL it is that of
// every process.
class TurkishLocale {
public:
    static constexpr const char* name = "tr_TR.UTF-8";

    TurkishLocale() {
        BackgroundProcess({.command = {"localedef", "-i", "tr_TR", "-f", "UTF-8", folder / name},
                           .outputFile = folder / "log"})
            .wait();
        std::ofstream(folder / "leaks") << "leak:__argz_add_sep\n";
    }
    std::string path() const { return folder.path.string(); }
    // For the LSAN_OPTIONS of a sanitized process: the C library loses the path that it looked in.
    std::string leakOptions() const {
        return "print_suppressions=0:suppressions=" + (folder / "leaks");
    }

private:
    TemporaryFolder folder;
};

}  // namespace orvel
