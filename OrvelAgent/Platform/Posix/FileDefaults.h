#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvelAgent/Platform/JsonDefaults.h"
#include "OrvelKit/Base/JsonText.h"

namespace orvel {

// The user defaults as one JSON object in a file that other processes and people may change at any
// time. Bytes are base64 strings, dates seconds since 2001. A write locks the file `<path>.lock`,
// reads again, and replaces the file by one that is on the disk already: whenever it is cut short,
// a whole file is left. Keys that nobody here knows stay as they are.
//
// What else may be found there:
// - a file that is no JSON object, or too large to be ours: it is renamed to
//   `<path>.unreadable-<n>`, and the defaults are empty until the next write;
// - a file that cannot be read, or something that is no file: it counts as empty, and every write
//   is refused as long as it is there.
// Each is logged once; so is the first of several writes that fail in the same way.
class FileDefaults : public JsonDefaults {
public:
    static constexpr std::size_t maxFileSize = 1024 * 1024;

    // An absolute path; its folder is made by the first write. A write waits for those of others,
    // which take as long as the disk takes, but not longer than `lockLimit`.
    explicit FileDefaults(std::string path, Duration lockLimit = std::chrono::seconds(5));

    std::optional<bool> boolean(const std::string& key) override;
    std::optional<std::string> string(const std::string& key) override;
    std::optional<std::vector<std::string>> strings(const std::string& key) override;
    std::optional<std::map<std::string, std::string>> stringDictionary(
        const std::string& key) override;
    std::optional<std::map<std::string, Bytes>> dataDictionary(const std::string& key) override;
    std::optional<std::map<std::string, WallTime>> dateDictionary(const std::string& key) override;

    using Defaults::set;
    bool set(const std::string& key, bool value) override;
    bool set(const std::string& key, const std::string& value) override;
    bool set(const std::string& key, const std::vector<std::string>& value) override;
    bool set(const std::string& key, const std::map<std::string, std::string>& value) override;
    bool set(const std::string& key, const std::map<std::string, Bytes>& value) override;
    bool set(const std::string& key, const std::map<std::string, WallTime>& value) override;
    bool remove(const std::string& key) override;

    // The same values in the form in which they are stored.
    std::optional<std::string> json(const std::string& key) override;
    bool setJson(const std::string& key, std::string_view value) override;
    std::optional<std::string> document() override;

private:
    struct Content {
        enum class Condition {
            usable,     // `members` is what there is
            foreign,    // to be kept aside
            unreadable  // not to be touched
        } condition = Condition::usable;
        std::vector<JsonMember> members;
        std::string problem;  // of the other two
        struct stat stamp = {};
        bool settled = false;  // a later change cannot have the same stamp
    };

    Content readFile() const;
    const Content& current();
    void putForeignAside(Content& content);
    std::string putAside() const;
    bool change(const std::string& key, std::optional<std::string> value);
    int write(const std::string& content) const;  // an errno value, 0 for success
    static void logOnce(std::string& last, const std::string& line);

    const std::string path;
    const Duration lockLimit;
    std::mutex mutex;  // guards the fields below; held while files are read and written
    std::optional<Content> cache;
    std::string lastReadProblem, lastWriteProblem;
};

}  // namespace orvel
