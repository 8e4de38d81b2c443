#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "OrvelKit/Base/Bytes.h"

namespace orvel::phone {

// A file that is being received. Its bytes go to NAME.part beside where it shall be and are hashed
// on the way; complete() gives it its name. Without complete() nothing is left of it. One thread.
class Download {
public:
    // When something of that name is there already.
    enum class Existing {
        keep,    // the new one becomes NAME-2, NAME-3 ... before its ending
        refuse,  // complete() fails
        replace  // by the new one, in one step
    };

    // `folder` may be empty: the current one. `name` is a name, not a path.
    Download(std::string folder, std::string name, Existing existing);
    ~Download();
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    // False: it cannot be written, see problem(); all that follows fails, too.
    bool open();
    bool write(ByteView bytes);
    bool complete();

    const std::string& problem() const { return trouble; }  // of the system, for people
    const std::string& path() const { return finalPath; }   // after complete()
    const std::string& sha256() const { return digest; }    // after complete(): 64 hex digits
    std::uint64_t size() const { return written; }          // bytes so far

private:
    struct Hash;
    std::string pathOf(const std::string& fileName) const;
    bool reserveName();
    bool fail(const std::string& path, int error);

    const std::string folder, name;
    const Existing existing;
    const std::unique_ptr<Hash> hash;
    int descriptor = -1;
    std::string partPath, finalPath, digest, trouble;
    std::uint64_t written = 0;
};

}  // namespace orvel::phone
