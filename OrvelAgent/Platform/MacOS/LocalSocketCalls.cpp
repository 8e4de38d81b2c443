// The contract of the socket calls: an address has room for 103 characters and is always a path;
// F_GETPATH tells where an open folder lies now; the way to a socket may lead through a symbolic
// link. getpeereid() answers with who connected, or who listened.
#include "OrvelAgent/Platform/Posix/LocalSocketCalls.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

namespace orvel {

namespace {

std::optional<sockaddr_un> addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    path.copy(address.sun_path, path.size());
    return address;
}

// A link with a short path to a folder, in a folder of this user's alone, as long as it lives.
class ShortPath {
public:
    explicit ShortPath(const char* to) {
        std::array<char, PATH_MAX> temporary{};
        const std::size_t length =
            confstr(_CS_DARWIN_USER_TEMP_DIR, temporary.data(), temporary.size());
        if (length == 0 || length > temporary.size()) return;
        folder = std::string(temporary.data()) + "/orvel.XXXXXX";
        if (!mkdtemp(folder.data())) {
            folder.clear();
        } else if (symlink(to, (folder + "/to").c_str()) == 0) {
            link = folder + "/to";
        }
    }
    ~ShortPath() {
        const int error = errno;
        if (!link.empty()) unlink(link.c_str());
        if (!folder.empty()) rmdir(folder.c_str());
        errno = error;
    }
    ShortPath(const ShortPath&) = delete;
    ShortPath& operator=(const ShortPath&) = delete;

    const std::string& path() const { return link; }  // empty: there could be none

private:
    std::string folder, link;
};

}  // namespace

int newLocalSocket() {
    const int made = socket(AF_UNIX, SOCK_STREAM, 0);
    if (made < 0) return -1;
    if (fcntl(made, F_SETFD, FD_CLOEXEC) == 0 && fcntl(made, F_SETFL, O_NONBLOCK) == 0) return made;
    const int error = errno;
    close(made);
    errno = error;
    return -1;
}

bool withLocalAddress(int folder, const char* name,
                      const std::function<bool(const sockaddr_un&)>& use) {
    std::array<char, PATH_MAX> path{};
    if (fcntl(folder, F_GETPATH, path.data()) != 0) return false;
    if (const auto address = addressOf(std::string(path.data()) + "/" + name)) return use(*address);
    const ShortPath link(path.data());
    if (link.path().empty()) return false;
    const auto address = addressOf(link.path() + "/" + name);
    return address && use(*address);
}

std::optional<uid_t> userOfPeer(int descriptor) {
    uid_t user = 0;
    gid_t group = 0;
    if (getpeereid(descriptor, &user, &group) != 0) return std::nullopt;
    return user;
}

}  // namespace orvel
