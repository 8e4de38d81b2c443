// The contract of the file calls: renameatx_np(RENAME_EXCL) fails with EEXIST when the target is
// there; fsync leaves the data in the drive's cache, which only F_FULLFSYNC empties, where the file
// system knows that. Foundation's: a URL's resource values may be asked for on any thread.
#import <Foundation/Foundation.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/Posix/FileCalls.h"

namespace orvel {

timespec modificationTime(const struct stat& status) {
    return status.st_mtimespec;
}

timespec changeTime(const struct stat& status) {
    return status.st_ctimespec;
}

int renameExclusively(int folder, const char* from, const char* to) {
    return renameatx_np(folder, from, folder, to, RENAME_EXCL);
}

int flushToDisk(int descriptor) {
    return fcntl(descriptor, F_FULLFSYNC) == 0 ? 0 : fsync(descriptor);
}

bool isHidden(const struct stat& status) {
    return status.st_flags & UF_HIDDEN;
}

bool isPackage(const std::string& path, const std::string& name) {
    @autoreleasepool {
        NSURL* const folder = [NSURL fileURLWithFileSystemRepresentation:(path + '/' + name).c_str()
                                                             isDirectory:YES
                                                           relativeToURL:nil];
        NSNumber* value = nil;
        return
            [folder getResourceValue:&value forKey:NSURLIsPackageKey error:nil] && value.boolValue;
    }
}

}  // namespace orvel
