#pragma once

#include <string>

#include "OrvelKit/Base/Bytes.h"

namespace orvel::phone {

// Files that are there whole or not at all.

struct FileContent {
    enum class Status { found, missing, unreadable } status = Status::missing;
    Bytes bytes;
    std::string problem;  // of the system, when unreadable
};
FileContent readFile(const std::string& path);

enum class FileAccess {
    ownerOnly,  // 0600
    asUsual     // what the user's mask leaves of 0666
};
// Writes beside `path`, makes it durable and renames it into place. Empty when done, else what the
// system said; what was there stays then.
std::string replaceFile(const std::string& path, ByteView content, FileAccess access);

// The same, but only when nothing is there; `exists` tells that case from others.
struct CreateOutcome {
    bool created = false, exists = false;
    std::string problem;
};
CreateOutcome createFile(const std::string& path, ByteView content, FileAccess access);

// 0700 where it did not exist. Empty when it is there now.
std::string createPrivateFolder(const std::string& path);

// Keeps other processes that ask for the same lock waiting while it lives. Without the right to
// create the file it locks nothing.
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    const int descriptor;
};

}  // namespace orvel::phone
