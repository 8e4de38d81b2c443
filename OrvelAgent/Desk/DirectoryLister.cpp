#include "OrvelAgent/Desk/DirectoryLister.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "OrvelAgent/Desk/EscapedName.h"

namespace orvel {

namespace {

std::size_t jsonLength(DirectoryListing listing) {
    return Control{std::move(listing)}.toJson().size();
}

// More than any entry takes beside its name, and than any byte of a name takes.
constexpr std::size_t mostBesideName = 128, mostForByte = 6;

void cutTo(DirectoryListing& listing, std::size_t maxBytes) {
    DirectoryListing frame{listing.path, listing.parent, {}, listing.error};
    const std::size_t frameLength = jsonLength(frame);
    std::size_t most = frameLength;
    for (const auto& entry : listing.entries)
        most += mostBesideName + mostForByte * entry.name.size();
    if (most <= maxBytes) return;

    std::size_t length = frameLength - 1;  // between entries is one comma less than there are
    std::size_t fitting = 0;
    frame.entries.resize(1);
    for (const auto& entry : listing.entries) {
        frame.entries.front() = entry;
        length += jsonLength(frame) - frameLength + 1;
        if (length > maxBytes) break;
        ++fitting;
    }
    if (fitting == listing.entries.size()) return;
    listing.entries.resize(fitting);
    std::fprintf(stderr, "orvel: a listing is too long for the phone's link, its end is cut off\n");
}

}  // namespace

std::string PhonePath::resolve(const std::optional<std::string>& path,
                               const std::string& homeFolder) {
    std::string resolved = EscapedName::unescape(path.value_or(""));
    if (!resolved.starts_with('/')) resolved = homeFolder + "/" + resolved;
    const auto twoSlashes = [](char a, char b) { return a == '/' && b == '/'; };
    resolved.erase(std::unique(resolved.begin(), resolved.end(), twoSlashes), resolved.end());
    if (resolved.size() > 1 && resolved.ends_with('/')) resolved.pop_back();
    return resolved;
}

std::string PhonePath::lastComponent(const std::string& path) {
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::optional<std::string> PhonePath::parent(const std::string& path) {
    if (path == "/") return std::nullopt;
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

DirectoryLister::DirectoryLister(FileSystem& fileSystem, std::string home)
    : files(fileSystem), homeFolder(std::move(home)) {}

DirectoryListing DirectoryLister::list(const std::optional<std::string>& path,
                                       std::size_t maxBytes) {
    const std::string folder = PhonePath::resolve(path, homeFolder);
    DirectoryListing listing;
    listing.path = EscapedName::escape(folder);
    if (const auto parent = PhonePath::parent(folder)) {
        listing.parent = EscapedName::escape(*parent);
    }
    const auto items = files.list(folder);
    if (!items) {
        listing.error = accessRefusedText;
        return listing;
    }

    if (!order) order.emplace();
    struct Keyed {
        std::string key;
        FileEntry entry;
    };
    std::vector<Keyed> sorted;
    sorted.reserve(items->size());
    for (const auto& item : *items) {
        const bool isDirectory = item.isDirectory && !item.isPackage;
        // The key's first byte puts folders first.
        sorted.push_back({(isDirectory ? "0" : "1") + order->keyOf(item.name),
                          {EscapedName::escape(item.name), isDirectory, item.size, item.modified}});
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
    listing.entries.reserve(sorted.size());
    for (auto& keyed : sorted)
        listing.entries.push_back(std::move(keyed.entry));
    cutTo(listing, maxBytes);
    return listing;
}

}  // namespace orvel
