#pragma once

#include <cstdint>
#include <string>

#include "OrvelAgent/Platform/Posix/Files.h"

namespace orvel {

// The private folder (0700) that a package is loaded into: `<name>.part` while it comes, `<name>`
// once it was found to be what it should be. One package at a time; nobody else's files. Errors are
// errno values, 0 means success. One thread at a time.
class PackageFolder {
public:
    explicit PackageFolder(std::string path);  // absolute

    // Makes it, or makes it private again, and removes what earlier runs left. EPERM when it is
    // another user's or no folder.
    int prepare();
    // An empty `<name>.part`; what was there before is gone.
    int begin(const std::string& name);
    int write(ByteView piece);
    // Reads anew what is there now: `<name>.part`, or `<name>` after accept(). EFBIG when it is
    // longer than what was written.
    int read(Bytes& package) const;
    // It is what it should be: gives it its name.
    int accept();
    // What there is, if anything, is gone.
    void discard();

    std::string packagePath() const { return path + "/" + name; }
    const std::string& folderPath() const { return path; }

private:
    std::string fileName() const { return accepted ? name : name + ".part"; }

    const std::string path;
    FileDescriptor folder;
    FileDescriptor file;  // open for writing
    std::string name;     // "": there is none
    bool accepted = false;
    std::uint64_t length = 0;
};

}  // namespace orvel
