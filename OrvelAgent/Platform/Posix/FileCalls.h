#pragma once

#include <sys/stat.h>

#include <ctime>
#include <string>

namespace orvel {

// What POSIX has no name for, or not the same one on each system.

timespec modificationTime(const struct stat& status);
timespec changeTime(const struct stat& status);  // of the content or of the attributes

// Like renameat() within one open folder, but fails with EEXIST when `to` is there. EINVAL, ENOSYS
// or ENOTSUP: this file system cannot do that.
int renameExclusively(int folder, const char* from, const char* to);

// Like fsync(), and true also when the power fails.
int flushToDisk(int descriptor);

// Whether the system does not show this to its user, names that begin with a dot apart.
bool isHidden(const struct stat& status);

// Whether the folder `name` in `path` is one that the system shows as one thing.
bool isPackage(const std::string& path, const std::string& name);

}  // namespace orvel
