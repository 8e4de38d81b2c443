#include "OrvelAgent/Platform/Posix/FileCalls.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string_view>

namespace orvel {

namespace {

// Endings of folders that come from systems where they are one thing. In lower case.
constexpr std::string_view packageEndings[] = {
    "app",          "appex", "bundle",        "kext",   "mdimporter", "mpkg",
    "musiclibrary", "pkg",   "photoslibrary", "plugin", "prefpane",   "qlgenerator",
    "rtfd",         "saver", "wdgt",          "xpc",
};

}  // namespace

timespec modificationTime(const struct stat& status) {
    return status.st_mtim;
}

timespec changeTime(const struct stat& status) {
    return status.st_ctim;
}

int renameExclusively(int folder, const char* from, const char* to) {
    return renameat2(folder, from, folder, to, RENAME_NOREPLACE);
}

int flushToDisk(int descriptor) {
    return fsync(descriptor);
}

bool isHidden(const struct stat&) {
    return false;
}

bool isPackage(const std::string&, const std::string& name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return false;
    std::string ending = name.substr(dot + 1);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return c < 0x80 ? std::tolower(c) : c; });
    return std::find(std::begin(packageEndings), std::end(packageEndings), ending) !=
           std::end(packageEndings);
}

}  // namespace orvel
