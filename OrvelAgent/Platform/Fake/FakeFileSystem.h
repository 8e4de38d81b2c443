#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "OrvelAgent/Platform/FileSystem.h"

namespace orvel {

// Files in memory. The test fills it before use; `beforeRead` is called on the queue of the files.
class FakeFileSystem : public FileSystem {
public:
    struct Entry {
        bool isDirectory = false;
        bool isDenied = false;        // can be seen, not listed or opened
        std::string content = {};     // of a file; read as it is when the reading comes to it
        std::size_t readable = ~0ul;  // bytes that can be read of it before it fails
        std::optional<WallTime> modified = {};
    };
    std::map<std::string, Entry> entries = {{"/", {true}}};  // by path; parents are not implied
    std::function<void()> beforeRead;
    int filesOpen = 0;

    std::optional<std::vector<Item>> list(const std::string& path) override {
        const auto folder = entries.find(path);
        if (folder == entries.end() || !folder->second.isDirectory || folder->second.isDenied)
            return std::nullopt;
        const std::string prefix = path == "/" ? path : path + "/";
        std::vector<Item> items;
        for (const auto& [itemPath, entry] : entries) {
            if (!itemPath.starts_with(prefix) || itemPath.size() == prefix.size()) continue;
            const std::string name = itemPath.substr(prefix.size());
            if (name.find('/') != std::string::npos || name.front() == '.') continue;
            const bool isPackage = entry.isDirectory && name.ends_with(".app");
            items.push_back({name, entry.isDirectory, isPackage,
                             static_cast<std::int64_t>(entry.content.size()), entry.modified});
        }
        return items;
    }

    std::variant<std::unique_ptr<File>, Refusal> open(const std::string& path) override {
        const auto found = entries.find(path);
        if (found == entries.end()) return Refusal::missing;
        if (found->second.isDirectory) return Refusal::folder;
        if (found->second.isDenied) return Refusal::denied;
        return std::make_unique<FakeFile>(*this, found->second);
    }

private:
    class FakeFile : public File {
    public:
        FakeFile(FakeFileSystem& fakeSystem, Entry& fileEntry)
            : system(fakeSystem),
              entry(fileEntry),
              sizeAtFirst(static_cast<std::int64_t>(fileEntry.content.size())) {
            ++system.filesOpen;
        }
        ~FakeFile() override { --system.filesOpen; }

        std::int64_t size() const override { return sizeAtFirst; }
        std::optional<std::size_t> read(std::span<std::uint8_t> into) override {
            if (system.beforeRead) system.beforeRead();
            if (done >= entry.readable) return std::nullopt;
            const std::size_t end = std::min(entry.content.size(), entry.readable);
            const std::size_t count = std::min(into.size(), end - std::min(done, end));
            std::copy_n(entry.content.data() + done, count, into.data());
            done += count;
            return count;
        }

    private:
        FakeFileSystem& system;
        Entry& entry;
        const std::int64_t sizeAtFirst;
        std::size_t done = 0;
    };
};

}  // namespace orvel
