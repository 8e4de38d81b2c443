#include <deque>
#include <filesystem>
#include <map>
#include <memory>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"
#include "Phone/Commands/ControlSession.h"
#include "Phone/Download.h"
#include "Phone/Progress.h"
#include "Phone/RemotePath.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t atOnce = 4;          // so that small files do not wait for each other
constexpr Duration silencePatience = 15s;  // before the computer is asked whether it is there
constexpr Duration cancelPatience = 5s;    // for the end frames of what was cancelled
constexpr Duration liveInterval = 200ms, remarkInterval = 10s;

struct GetOptions {
    std::vector<std::string> paths;
    std::string output;
    bool force = false;
};

MonotonicTime now() {
    return std::chrono::steady_clock::now();
}

// Where files go: into a folder under their own names, or, a single one, to a name.
struct Destination {
    std::string folder;
    std::optional<std::string> name;

    static Destination of(const GetOptions& options) {
        const std::string& output = options.output;
        std::error_code ignored;
        if (output.empty()) return {};
        if (std::filesystem::is_directory(output, ignored)) return {output, {}};
        if (output.ends_with('/')) throw CommandError(output + " is no folder.");
        if (options.paths.size() > 1) {
            throw CommandError(output + " is no folder, and several files need one.");
        }
        if (!options.force && std::filesystem::exists(output, ignored)) {
            throw CommandError(output + " exists: --force replaces it.");
        }
        const std::filesystem::path path(output);
        return {path.parent_path().string(), path.filename().string()};
    }
};

// All files of one call. A few are fetched at a time, the others wait.
class Get {
public:
    Get(CommandContext& commandContext, ControlSession& controlSession,
        const GetOptions& getOptions, Destination where)
        : context(commandContext),
          session(controlSession),
          options(getOptions),
          destination(std::move(where)),
          waiting(options.paths.begin(), options.paths.end()),
          progress(now()) {}

    void run() {
        while (!waiting.empty() || !transfers.empty()) {
            while (!waiting.empty() && transfers.size() < atOnce)
                fetchNext();
            if (const auto event = session.next(100ms)) {
                lastSign = now();
                if (const auto* frame = event->as<FileFrame>()) take(*frame);
            }
            if (interrupt.isRequested()) return cancel();
            watchSilence();
            showProgress();
        }
        if (failed > 0 && options.paths.size() > 1) {
            throw CommandError(std::to_string(failed) + " of " +
                               std::to_string(options.paths.size()) + " files were not fetched.");
        }
        if (failed > 0) throw CommandError(lastProblem);
    }

private:
    struct Transfer {
        std::string path;  // there
        std::unique_ptr<Download> download;
        std::optional<std::int64_t> announced;  // bytes
        MonotonicTime begin;
    };

    void fetchNext() {
        const std::string path = std::move(waiting.front());
        waiting.pop_front();
        const std::string name = destination.name.value_or(RemotePath::localName(path).value());
        const auto existing = options.force      ? Download::Existing::replace
                              : destination.name ? Download::Existing::refuse
                                                 : Download::Existing::keep;
        const std::uint32_t id = ++lastID;
        session.link().send({Control::FetchFile{id, RemotePath::toSend(path).value()}});
        transfers[id] = {
            path, std::make_unique<Download>(destination.folder, name, existing), {}, now()};
    }

    void take(const FileFrame& frame) {
        const auto found = transfers.find(frame.id);
        if (found == transfers.end()) return;  // what was still under way of one that failed
        Transfer& transfer = found->second;
        if (const auto* data = std::get_if<FileFrame::Data>(&frame.step)) {
            progress.add(data->bytes.size());
            if (!transfer.download->write(data->bytes)) giveUp(frame.id);
        } else if (const auto* start = std::get_if<FileFrame::Start>(&frame.step)) {
            transfer.announced = start->size;
            progress.expect(start->size);
            if (!transfer.download->open()) giveUp(frame.id);
        } else {
            end(frame.id, std::get<FileFrame::End>(frame.step));
        }
    }

    // It cannot be kept here.
    void giveUp(std::uint32_t id) {
        session.link().send({Control::CancelFetch{id}});
        const Transfer transfer = std::move(transfers.at(id));
        transfers.erase(id);
        fail(transfer.download->problem());
    }

    void end(std::uint32_t id, const FileFrame::End& outcome) {
        const Transfer transfer = std::move(transfers.at(id));
        transfers.erase(id);
        Download& download = *transfer.download;
        if (outcome.error) return fail(transfer.path + ": " + *outcome.error);
        if (!transfer.announced) return fail(transfer.path + ": It was not sent.");
        if (!download.complete()) return fail(download.problem());
        const double seconds = std::chrono::duration<double>(now() - transfer.begin).count();
        context.settings.json ? context.console.say(json(transfer, seconds))
                              : sayFetched(transfer, seconds);
    }

    // The line on standard output is what sha256sum writes and reads.
    void sayFetched(const Transfer& transfer, double seconds) {
        const Download& download = *transfer.download;
        const double bytes = double(download.size());
        char time[32];
        std::snprintf(time, sizeof time, "%.1f s", seconds);
        context.console.remark(printable(transfer.path) + ": " + humanSize(bytes) + " in " + time +
                               ", " + humanSize(bytes / std::max(seconds, 1e-3)) + "/s");
        if (download.size() != static_cast<std::uint64_t>(*transfer.announced)) {
            context.console.remark("It changed while it was read: it had " +
                                   std::to_string(*transfer.announced) + " bytes, " +
                                   std::to_string(download.size()) + " came.");
        }
        context.console.say(download.sha256() + "  " + printable(download.path()));
    }

    std::string json(const Transfer& transfer, double seconds) {
        JsonWriter writer;
        const auto text = [&](const char* key, const std::string& value) {
            writer.key(key);
            writer.string(value);
        };
        writer.beginObject();
        text("path", transfer.path);
        text("file", transfer.download->path());
        text("sha256", transfer.download->sha256());
        writer.key("size");
        writer.unsignedInteger(transfer.download->size());
        writer.key("seconds");
        writer.number(seconds);
        writer.endObject();
        return writer.take();
    }

    void fail(const std::string& problem) {
        ++failed;
        lastProblem = printable(problem);
        if (options.paths.size() > 1) context.console.remark(lastProblem);
    }

    void cancel() {
        for (const auto& [id, transfer] : transfers)
            session.link().send({Control::CancelFetch{id}});
        const MonotonicTime deadline = now() + cancelPatience;
        while (!transfers.empty() && now() < deadline) {
            const auto event = session.next(deadline - now());
            const auto* frame = event ? event->as<FileFrame>() : nullptr;
            if (frame && std::holds_alternative<FileFrame::End>(frame->step)) {
                transfers.erase(frame->id);
            }
        }
        throw CommandError("Cancelled.");
    }

    void watchSilence() {
        const Duration silence = now() - lastSign;
        if (silence > 2 * silencePatience) {
            throw CommandError(session.name() + " does not answer.");
        }
        if (silence > silencePatience && lastAsked < lastSign) {
            lastAsked = now();
            session.link().send({Control::Ping{lastID}});
        }
    }

    void showProgress() {
        const bool isLive = context.console.showsProgress();
        if (now() < nextShown || transfers.empty()) return;
        nextShown = now() + (isLive ? liveInterval : remarkInterval);
        if (!isLive && std::exchange(shownBefore, true) == false) return;
        const std::size_t count = options.paths.size();
        const std::string what = count == 1
                                     ? printable(*RemotePath::localName(options.paths.front()))
                                     : std::to_string(count - waiting.size() - transfers.size()) +
                                           " of " + std::to_string(count) + " files";
        const std::string line = what + "  " + progress.line(now());
        isLive ? context.console.progress(line) : context.console.remark(line);
    }

    CommandContext& context;
    ControlSession& session;
    const GetOptions& options;
    const Destination destination;
    const Interrupt interrupt;
    std::deque<std::string> waiting;
    std::map<std::uint32_t, Transfer> transfers;
    std::uint32_t lastID = 0;
    Progress progress;
    std::size_t failed = 0;
    std::string lastProblem;
    MonotonicTime lastSign = now(), lastAsked{}, nextShown{};
    bool shownBefore = false;
};

void get(CommandContext& context, const GetOptions& options) {
    Destination destination = Destination::of(options);
    ControlSession session = ControlSession::open(context);
    Get(context, session, options, std::move(destination)).run();
}

}  // namespace

void addGet(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<GetOptions>();
    auto* command = app.add_subcommand(
        "get",
        "Fetch files from the computer. Each is written as NAME.part until it is complete; "
        "standard output gets the lines of sha256sum. Ctrl-C cancels and leaves nothing behind");
    command
        ->add_option("PATH", options->paths,
                     "The files; without / in front they are in the home folder")
        ->required()
        ->check([](const std::string& path) {
            return RemotePath::localName(path) ? "" : "'" + path + "' is no file's path";
        });
    command->add_option("-o,--output", options->output,
                        "A folder to put them into (the current one), or, for a single file, what "
                        "to call it");
    command->add_flag("--force", options->force,
                      "Replace files that exist. Without it a file gets a number before its "
                      "ending, and one named with -o is refused");
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { get(context, *options); };
    });
}

}  // namespace orvel::phone
