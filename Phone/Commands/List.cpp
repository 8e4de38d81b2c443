#include <cmath>
#include <ctime>
#include <memory>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"
#include "Phone/Commands/ControlSession.h"
#include "Phone/Progress.h"
#include "Phone/RemotePath.h"

namespace orvel::phone {

namespace {

struct ListOptions {
    std::string path;
};

std::string localTime(WallTime time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    char text[32];
    if (!localtime_r(&seconds, &parts)) return {};
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts)};
}

// One object; times are Unix seconds.
std::string json(const DirectoryListing& listing) {
    JsonWriter writer;
    const auto member = [&](const char* key, const std::string& value) {
        writer.key(key);
        writer.string(value);
    };
    writer.beginObject();
    member("path", listing.path);
    if (listing.parent) member("parent", *listing.parent);
    writer.key("entries");
    writer.beginArray();
    for (const FileEntry& entry : listing.entries) {
        writer.beginObject();
        member("name", entry.name);
        writer.key("isDirectory");
        writer.boolean(entry.isDirectory);
        writer.key("size");
        writer.integer(entry.size);
        if (entry.modified) {
            writer.key("modified");
            writer.number(
                std::chrono::duration<double>(entry.modified->time_since_epoch()).count());
        }
        writer.endObject();
    }
    writer.endArray();
    writer.endObject();
    return writer.take();
}

void list(CommandContext& context, const ListOptions& options) {
    ControlSession session = ControlSession::open(context);
    session.link().send({Control::ListDirectory{RemotePath::toSend(options.path)}});
    const auto listing = session.await<DirectoryListing>();
    if (listing.error) {
        throw CommandError(printable(listing.path) + ": " + printable(*listing.error));
    }
    Console& console = context.console;
    if (context.settings.json) return console.say(json(listing));
    console.say(printable(listing.path) +
                (listing.parent ? "  (in " + printable(*listing.parent) + ")" : ""));
    for (const FileEntry& entry : listing.entries) {
        const std::string size = entry.isDirectory ? "" : humanSize(double(entry.size));
        const std::string time = entry.modified ? localTime(*entry.modified) : "";
        const auto padding = [](std::size_t width, const std::string& text) {
            return std::string(width - std::min(width, text.size()), ' ');
        };
        console.say(padding(9, size) + size + "  " + time + padding(16, time) + "  " +
                    printable(entry.name) + (entry.isDirectory ? "/" : ""));
    }
}

}  // namespace

void addList(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ListOptions>();
    auto* command = app.add_subcommand("ls", "List a folder of the computer");
    command->add_option("PATH", options->path,
                        "The folder; without / in front it is in the home folder, which is listed "
                        "without a PATH");
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { list(context, *options); };
    });
}

}  // namespace orvel::phone
