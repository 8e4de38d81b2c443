#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// What the stores of state need of the file system. Errors are errno values; 0 means success.

// Owns an open descriptor; -1 is none.
class FileDescriptor {
public:
    explicit FileDescriptor(int opened = -1) : descriptor(opened) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor(std::exchange(other.descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    int get() const { return descriptor; }
    explicit operator bool() const { return descriptor >= 0; }

private:
    int descriptor;
};

// "Permission denied" and the like, for log lines.
std::string describeError(int error);

// Makes the folder and its missing parents, each for this user only. One that is there already
// stays as it is.
int makeFolder(const std::string& path);

// Reads to the end. EFBIG when there are more than `limit` bytes.
int readAll(int descriptor, std::size_t limit, Bytes& data);

// Creates `name` in the open folder, readable by this user only, and returns when its content is
// on the disk. EEXIST when something has that name; after any other error nothing is left.
int createFile(int folder, const std::string& name, ByteView data);

// Puts a file with this content in the place of `name`, whatever happens a whole one. One writer of
// a name at a time: `.<name>.new` is where the content goes first.
int replaceFile(int folder, const std::string& name, ByteView data);

// Makes what was created, renamed or removed in the open folder durable.
int syncFolder(int folder);

// An exclusive lock on a file beside what it protects, among processes that ask for it; it ends
// with the process. The file stays behind, which is harmless.
class FileLock {
public:
    // Waits up to `limit`. 0, ETIMEDOUT, or why the lock file could not be opened. Where the file
    // system knows no locks, this counts as locked.
    int acquire(const std::string& path, Duration limit);

private:
    FileDescriptor file;
};

}  // namespace orvel
