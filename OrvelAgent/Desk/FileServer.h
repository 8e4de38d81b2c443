#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelAgent/Platform/FileSystem.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

class DirectoryLister;

// Lets phones browse this computer's folders and download its files. What waits for a disk happens
// on "orvel.files"; everything else, calls and replies included, on "orvel.agent".
//
// A download is a start frame, data frames and one end frame; one that cannot begin is an end frame
// alone. It reads on until the file's end, wherever that is by then: a file that grows is sent with
// what was added, one that shrinks ends early, one that is deleted is sent whole. The downloads of
// a link take turns, and stay about 2 MiB ahead of what the link has sent.
//
// Owned by a shared_ptr. Links are held weakly: one that is gone ends its downloads.
class FileServer : public std::enable_shared_from_this<FileServer> {
public:
    static constexpr std::int64_t aheadLimit = 2'097'152;          // bytes of file frames in a link
    static constexpr std::size_t chunkLength = 65'536;             // bytes read at a time
    static constexpr std::chrono::milliseconds retryInterval{10};  // should a link not report
    static constexpr std::size_t maxOpen = 64;        // downloads of a link at once; others wait
    static constexpr std::size_t maxWaiting = 4'096;  // of a link
    static constexpr std::size_t maxListings = 256;   // not yet answered, all in all

    enum class Outcome {
        accepted,
        refused  // more is waiting than a phone in its senses asks for; nothing done: end that link
    };

    // `filesQueue` is "orvel.files"; `files` is used there alone. Both, and `queue`, outlive the
    // server. `homeFolder`: what an absent path lists, and where relative ones begin.
    FileServer(SerialQueue& queue, SerialQueue& filesQueue, FileSystem& files,
               std::string homeFolder);
    ~FileServer();
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;

    // `reply` is called once, later. Of a listing that is longer than `maxBytes` of JSON it gets
    // the first entries.
    [[nodiscard]] Outcome listDirectory(const std::optional<std::string>& path,
                                        std::function<void(DirectoryListing)> reply,
                                        std::size_t maxBytes = FrameBuffer::longestSealed);

    // The outcome arrives at the phone. A download of the link that already has this id is
    // replaced, without an end frame, when the new one starts.
    [[nodiscard]] Outcome fetchFile(std::uint32_t id, const std::string& path,
                                    const std::shared_ptr<PhoneLink>& link);
    // The phone gets an end frame that says so. An id that is not known does nothing.
    void cancel(std::uint32_t id, const PhoneLink& link);
    // All downloads of a link: when it has ended or is not obeyed any more.
    void cancelAll(const PhoneLink& link);

private:
    struct Transfer;
    struct Phone;
    using PhoneHandle = std::shared_ptr<Phone>;
    using TransferHandle = std::shared_ptr<Transfer>;
    struct Chunk;

    PhoneHandle phoneOf(const PhoneLink& link) const RUNS_ON(queue);
    // Does what can be done for a phone now: opens, reads, ends.
    void pump(const PhoneHandle& phone) RUNS_ON(queue);
    void pumpOnce(const PhoneHandle& phone) RUNS_ON(queue);
    void open(const PhoneHandle& phone, const TransferHandle& transfer) RUNS_ON(queue);
    void opened(const PhoneHandle& phone, const TransferHandle& transfer,
                std::shared_ptr<FileSystem::File> file, const char* error) RUNS_ON(queue);
    void read(const PhoneHandle& phone, const TransferHandle& transfer) RUNS_ON(queue);
    void wasRead(const PhoneHandle& phone, const TransferHandle& transfer, Chunk chunk)
        RUNS_ON(queue);
    void finish(const PhoneHandle& phone, const TransferHandle& transfer,
                std::optional<std::string> error) RUNS_ON(queue);
    void send(const PhoneHandle& phone, FrameBuffer frame) RUNS_ON(queue);
    void forget(const PhoneHandle& phone) RUNS_ON(queue);
    void close(Transfer& transfer) RUNS_ON(queue);

    // A task for this server's queue that does nothing once the server is gone.
    template <class Body>
    void onQueue(Body body);

    SerialQueue& queue;
    SerialQueue& filesQueue;
    FileSystem& files OWNED_BY(filesQueue);
    const std::string homeFolder;
    const std::unique_ptr<DirectoryLister> lister OWNED_BY(filesQueue);
    std::vector<PhoneHandle> phones OWNED_BY(queue);
    std::size_t listings OWNED_BY(queue) = 0;  // not yet answered
};

}  // namespace orvel
