#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// The user's files as the system keeps them, for reading. Names and paths are its own bytes, which
// need not be UTF-8; paths are absolute. Calls may wait for a disk: only on "orvel.files", one at a
// time. Links are followed.
class FileSystem {
public:
    struct Item {
        std::string name;
        bool isDirectory = false;
        bool isPackage = false;  // a folder that the system shows as one thing: an application, say
        std::int64_t size = 0;   // bytes of a file; 0: not known
        std::optional<WallTime> modified;
        // What cannot be looked at, a link to nowhere for one, has only its name.
    };

    // A regular file, open for reading.
    class File {
    public:
        virtual ~File() = default;
        virtual std::int64_t size() const = 0;  // bytes when it was opened; 0: not known
        // The next bytes. 0: the end, as it is now. nullopt: they cannot be read.
        virtual std::optional<std::size_t> read(std::span<std::uint8_t> into) = 0;
    };

    enum class Refusal {
        missing,
        folder,
        denied  // no permission, or something else than a file; devices and pipes are not touched
    };

    virtual ~FileSystem() = default;
    // What is in a folder, in no particular order, without what the system hides from its user.
    // nullopt: it cannot be listed.
    virtual std::optional<std::vector<Item>> list(const std::string& path) = 0;
    virtual std::variant<std::unique_ptr<File>, Refusal> open(const std::string& path) = 0;

    static std::unique_ptr<FileSystem> create();
};

}  // namespace orvel
