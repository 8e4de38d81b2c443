#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace orvel {

// An empty folder that is gone, with what was put into it, when this object is.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "orvel-test-XXXXXX";
        if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
        path = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The path of `name` in it; there need not be such a file.
    std::string operator/(const std::string& name) const { return (path / name).string(); }

    std::filesystem::path path;
};

}  // namespace orvel
