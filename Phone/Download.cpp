#include "Phone/Download.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "OrvelKit/Base/Unicode.h"
#include "Phone/NumberedName.h"

namespace orvel::phone {

namespace {

constexpr std::size_t longestName = 255;  // bytes: NAME_MAX of what people use
constexpr std::size_t mostNames = 10'000;
constexpr const char* partEnding = ".part";

// Creates a file where there is none: its descriptor, or -1 and errno.
int createNew(const std::string& path) {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

// The longest front that leaves room for an ending and cuts no character in two.
std::string shortened(const std::string& name, std::size_t most) {
    std::string_view rest = name;
    std::size_t length = 0;
    while (!rest.empty()) {
        const std::size_t character = std::max<std::size_t>(characterLength(rest), 1);
        if (length + character > most) break;
        length += character;
        rest.remove_prefix(character);
    }
    return name.substr(0, length);
}

}  // namespace

struct Download::Hash {
    EVP_MD_CTX* const context = EVP_MD_CTX_new();

    Hash() {
        if (!context || EVP_DigestInit_ex(context, EVP_sha256(), nullptr) != 1) std::abort();
    }
    ~Hash() { EVP_MD_CTX_free(context); }
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;

    void add(ByteView bytes) {
        if (EVP_DigestUpdate(context, bytes.data(), bytes.size()) != 1) std::abort();
    }
    std::string finish() {
        std::uint8_t bytes[EVP_MAX_MD_SIZE];
        unsigned length = 0;
        if (EVP_DigestFinal_ex(context, bytes, &length) != 1) std::abort();
        std::string hex;
        for (unsigned i = 0; i < length; ++i) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
            hex += digits;
        }
        return hex;
    }
};

Download::Download(std::string localFolder, std::string localName, Existing whenExisting)
    : folder(std::move(localFolder)),
      name(std::move(localName)),
      existing(whenExisting),
      hash(std::make_unique<Hash>()) {}

Download::~Download() {
    if (descriptor >= 0) ::close(descriptor);
    if (!partPath.empty()) ::unlink(partPath.c_str());
}

bool Download::open() {
    const std::string front = shortened(name, longestName - std::strlen(partEnding) - 6);
    for (std::size_t number = 1; number <= mostNames; ++number) {
        const std::string candidate = pathOf(numberedName(front + partEnding, number));
        descriptor = createNew(candidate);
        if (descriptor >= 0) {
            partPath = candidate;
            return true;
        }
        if (errno != EEXIST) return fail(candidate, errno);
    }
    return fail(pathOf(name), EEXIST);
}

bool Download::write(ByteView bytes) {
    if (descriptor < 0) return false;
    hash->add(bytes);
    while (!bytes.empty()) {
        const ssize_t length = ::write(descriptor, bytes.data(), bytes.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return fail(pathOf(name), errno);
        written += static_cast<std::uint64_t>(length);
        bytes = bytes.subspan(static_cast<std::size_t>(length));
    }
    return true;
}

bool Download::complete() {
    if (descriptor < 0) return false;
    // Some file systems say only now that there was no room.
    if (::close(std::exchange(descriptor, -1)) != 0) return fail(pathOf(name), errno);
    if (!reserveName()) return false;
    if (::rename(partPath.c_str(), finalPath.c_str()) != 0) {
        const int error = errno;
        if (existing != Existing::replace) ::unlink(finalPath.c_str());
        return fail(finalPath, error);
    }
    partPath.clear();
    digest = hash->finish();
    return true;
}

// An empty file of our own, which the rename then replaces: whatever anybody else creates
// meanwhile, nothing is overwritten.
bool Download::reserveName() {
    if (existing == Existing::replace) {
        finalPath = pathOf(name);
        return true;
    }
    const std::size_t most = existing == Existing::keep ? mostNames : 1;
    for (std::size_t number = 1; number <= most; ++number) {
        finalPath = pathOf(numberedName(name, number));
        const int reserved = createNew(finalPath);
        if (reserved >= 0) return ::close(reserved) == 0 || fail(finalPath, errno);
        if (errno != EEXIST) return fail(finalPath, errno);
    }
    return fail(finalPath, EEXIST);
}

std::string Download::pathOf(const std::string& fileName) const {
    if (folder.empty()) return fileName;
    return folder.ends_with('/') ? folder + fileName : folder + "/" + fileName;
}

bool Download::fail(const std::string& path, int error) {
    trouble = path + ": " + std::strerror(error);
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
    return false;
}

}  // namespace orvel::phone
