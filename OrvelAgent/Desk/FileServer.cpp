#include "OrvelAgent/Desk/FileServer.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "OrvelAgent/Desk/DirectoryLister.h"
#include "OrvelAgent/Desk/EscapedName.h"
#include "OrvelKit/Wire/Files.h"

namespace orvel {

namespace {

// How much has to be missing from the limit before there are reads again.
constexpr std::int64_t refillLength = 4 * std::int64_t{FileServer::chunkLength};

constexpr const char* missingText = "Dosya bulunamadı.";
constexpr const char* folderText = "Klasörler henüz indirilemiyor.";
constexpr const char* readErrorText = "Dosya okunamadı.";
constexpr const char* cancelledText = "İptal edildi.";

const char* textFor(FileSystem::Refusal refusal) {
    switch (refusal) {
        case FileSystem::Refusal::missing:
            return missingText;
        case FileSystem::Refusal::folder:
            return folderText;
        case FileSystem::Refusal::denied:
            break;
    }
    return accessRefusedText;
}

}  // namespace

// waiting -> opening -> running -> over; any may end early.
struct FileServer::Transfer {
    enum class State { waiting, opening, running, over };
    const std::uint32_t id;
    const std::string path;  // as the phone wrote it
    State state = State::waiting;
    bool cancelled = false;
    std::shared_ptr<FileSystem::File> file = nullptr;  // only "orvel.files" reads it
    std::int64_t left = 0;  // of the bytes announced, those that nobody has been asked to read
    int reads = 0;          // asked for and not yet answered

    // Up to the announced end it is known how much there is to read, and reads may follow one
    // another; from there on each one has to tell whether there is another.
    bool canRead() const { return state == State::running && (left > 0 || reads == 0); }
};

// What one link has asked for.
struct FileServer::Phone {
    std::weak_ptr<PhoneLink> link;
    std::deque<TransferHandle> waiting;
    std::deque<TransferHandle> open;  // opening or running; whose turn it is stands in front
    std::int64_t reading = 0;         // bytes that may come from the disk
    Timer retry;
    bool isPumping = false;
    bool pumpAgain = false;  // something happened meanwhile
};

// Neither a frame nor an error: the end of the file.
struct FileServer::Chunk {
    std::optional<FrameBuffer> frame;
    bool failed = false;

    // `expected`: as many bytes as there should be; 0: the announced end is reached, but more may
    // have been added.
    static Chunk read(FileSystem::File& file, std::uint32_t id, std::size_t expected) {
        if (expected > 0) {
            FrameBuffer frame = FileFrame::dataBuffer(id, expected);
            std::uint8_t* bytes = frame.payload() + FileFrame::dataHeaderLength;
            const auto count = file.read({bytes, expected});
            if (count == expected) return {std::move(frame)};
            return take(count, id, bytes);
        }
        Bytes scratch(chunkLength);
        return take(file.read(scratch), id, scratch.data());
    }

private:
    // The rare case in which the number of bytes was not known before: one copy more.
    static Chunk take(std::optional<std::size_t> count, std::uint32_t id,
                      const std::uint8_t* bytes) {
        if (!count) return {std::nullopt, true};
        if (*count == 0) return {};
        FrameBuffer frame = FileFrame::dataBuffer(id, *count);
        std::copy_n(bytes, *count, frame.payload() + FileFrame::dataHeaderLength);
        return {std::move(frame)};
    }
};

FileServer::FileServer(SerialQueue& agentQueue, SerialQueue& diskQueue, FileSystem& fileSystem,
                       std::string home)
    : queue(agentQueue),
      filesQueue(diskQueue),
      files(fileSystem),
      homeFolder(std::move(home)),
      lister(std::make_unique<DirectoryLister>(fileSystem, homeFolder)) {}

FileServer::~FileServer() = default;

template <class Body>
void FileServer::onQueue(Body body) {
    queue.post([weak = weak_from_this(), body = std::move(body)]() mutable {
        if (auto self = weak.lock()) body(*self);
    });
}

FileServer::Outcome FileServer::listDirectory(const std::optional<std::string>& path,
                                              std::function<void(DirectoryListing)> reply,
                                              std::size_t maxBytes) {
    queue.assertCurrent();
    if (listings >= maxListings) return Outcome::refused;
    ++listings;
    filesQueue.post([weak = weak_from_this(), path, maxBytes, reply = std::move(reply)]() mutable {
        const auto self = weak.lock();
        if (!self) return;
        self->filesQueue.assertCurrent();
        self->onQueue([listing = self->lister->list(path, maxBytes),
                       reply = std::move(reply)](FileServer& server) mutable {
            server.queue.assertCurrent();
            --server.listings;
            reply(std::move(listing));
        });
    });
    return Outcome::accepted;
}

FileServer::Outcome FileServer::fetchFile(std::uint32_t id, const std::string& path,
                                          const std::shared_ptr<PhoneLink>& link) {
    queue.assertCurrent();
    PhoneHandle phone = phoneOf(*link);
    if (!phone) {
        phone = phones.emplace_back(std::make_shared<Phone>());
        phone->link = link;
    }
    if (phone->waiting.size() >= maxWaiting) return Outcome::refused;
    phone->waiting.push_back(std::make_shared<Transfer>(Transfer{.id = id, .path = path}));
    pump(phone);
    return Outcome::accepted;
}

void FileServer::cancel(std::uint32_t id, const PhoneLink& link) {
    queue.assertCurrent();
    const PhoneHandle phone = phoneOf(link);
    if (!phone) return;
    for (const auto* list : {&phone->waiting, &phone->open}) {
        for (const auto& transfer : *list) {
            if (transfer->id == id) transfer->cancelled = true;
        }
    }
    pump(phone);
}

void FileServer::cancelAll(const PhoneLink& link) {
    queue.assertCurrent();
    const PhoneHandle phone = phoneOf(link);
    if (!phone) return;
    for (const auto* list : {&phone->waiting, &phone->open}) {
        for (const auto& transfer : *list)
            transfer->cancelled = true;
    }
    pump(phone);
}

FileServer::PhoneHandle FileServer::phoneOf(const PhoneLink& link) const {
    for (const auto& phone : phones) {
        if (phone->link.lock().get() == &link) return phone;
    }
    return nullptr;
}

void FileServer::pump(const PhoneHandle& phone) {
    // Sending may report at once that it has been sent, which leads back here.
    phone->pumpAgain = true;
    if (std::exchange(phone->isPumping, true)) return;
    while (std::exchange(phone->pumpAgain, false))
        pumpOnce(phone);
    phone->isPumping = false;
}

void FileServer::pumpOnce(const PhoneHandle& phone) {
    const auto link = phone->link.lock();
    if (!link) return forget(phone);

    const auto cancelledIn = [](const std::deque<TransferHandle>& list) {
        const auto found = std::find_if(list.begin(), list.end(), [](const auto& transfer) {
            return transfer->cancelled && transfer->state != Transfer::State::opening;
        });
        return found == list.end() ? nullptr : *found;
    };
    while (const auto transfer = cancelledIn(phone->open))
        finish(phone, transfer, cancelledText);
    while (const auto transfer = cancelledIn(phone->waiting))
        finish(phone, transfer, cancelledText);

    // A start may go a little beyond the limit, so that a short file need not wait for a long one
    // to make room. But it, or the end that is sent when nothing can start, counts: a phone that
    // does not read gets no further answers.
    while (!phone->waiting.empty() && phone->open.size() < maxOpen &&
           link->fileBacklog() < aheadLimit + 2 * std::int64_t{chunkLength}) {
        const TransferHandle transfer = std::move(phone->waiting.front());
        phone->waiting.pop_front();
        phone->open.push_back(transfer);
        open(phone, transfer);
    }
    const auto room = [&] { return aheadLimit - link->fileBacklog() - phone->reading; };
    const auto canRead = [](const auto& transfer) { return transfer->canRead(); };
    // Several at a time: to wake the reading thread costs a good part of a read.
    const bool refills = room() >= refillLength;
    while (refills && room() > 0) {
        const auto next = std::find_if(phone->open.begin(), phone->open.end(), canRead);
        if (next == phone->open.end()) break;
        const TransferHandle transfer = *next;
        phone->open.erase(next);
        phone->open.push_back(transfer);
        read(phone, transfer);
    }

    const bool waitsForRoom =
        !phone->waiting.empty() || std::any_of(phone->open.begin(), phone->open.end(), canRead);
    if (!waitsForRoom) {
        phone->retry.cancel();
    } else if (!phone->retry.isPending()) {
        phone->retry =
            queue.after(retryInterval, [weak = weak_from_this(), weakPhone = std::weak_ptr(phone)] {
                const auto self = weak.lock();
                const auto waiting = weakPhone.lock();
                if (!self || !waiting) return;
                self->queue.assertCurrent();
                self->pump(waiting);
            });
    }
    if (phone->waiting.empty() && phone->open.empty()) std::erase(phones, phone);
}

void FileServer::open(const PhoneHandle& phone, const TransferHandle& transfer) {
    transfer->state = Transfer::State::opening;
    filesQueue.post([weak = weak_from_this(), phone, transfer] {
        const auto self = weak.lock();
        if (!self) return;
        self->filesQueue.assertCurrent();
        auto result = self->files.open(PhonePath::resolve(transfer->path, self->homeFolder));
        std::shared_ptr<FileSystem::File> file;
        const char* error = nullptr;
        if (const auto* refusal = std::get_if<FileSystem::Refusal>(&result)) {
            error = textFor(*refusal);
        } else {
            file = std::get<std::unique_ptr<FileSystem::File>>(std::move(result));
        }
        self->onQueue([phone, transfer, file = std::move(file), error](FileServer& server) {
            server.queue.assertCurrent();
            server.opened(phone, transfer, file, error);
        });
    });
}

void FileServer::opened(const PhoneHandle& phone, const TransferHandle& transfer,
                        std::shared_ptr<FileSystem::File> file, const char* error) {
    transfer->file = std::move(file);
    transfer->state = Transfer::State::running;
    if (transfer->cancelled) error = cancelledText;
    if (error) {
        finish(phone, transfer, error);
        return pump(phone);
    }
    const auto replaced =
        std::find_if(phone->open.begin(), phone->open.end(), [&](const TransferHandle& other) {
            return other != transfer && other->id == transfer->id &&
                   other->state != Transfer::State::opening;
        });
    if (replaced != phone->open.end()) {
        close(**replaced);
        phone->open.erase(replaced);
    }
    transfer->left = transfer->file->size();
    const std::string name =
        PhonePath::lastComponent(PhonePath::resolve(transfer->path, homeFolder));
    const FileFrame::Start start{EscapedName::escape(name), transfer->left};
    send(phone, FileFrame{transfer->id, start}.encode());
    pump(phone);
}

void FileServer::read(const PhoneHandle& phone, const TransferHandle& transfer) {
    const auto expected = std::min<std::int64_t>(transfer->left, chunkLength);
    transfer->left -= expected;
    ++transfer->reads;
    phone->reading += chunkLength;
    filesQueue.post([weak = weak_from_this(), phone, transfer, file = transfer->file,
                     id = transfer->id, length = static_cast<std::size_t>(expected)] {
        auto chunk = Chunk::read(*file, id, length);
        const auto self = weak.lock();
        if (!self) return;
        self->onQueue([phone, transfer, chunk = std::move(chunk)](FileServer& server) mutable {
            server.queue.assertCurrent();
            server.wasRead(phone, transfer, std::move(chunk));
        });
    });
}

void FileServer::wasRead(const PhoneHandle& phone, const TransferHandle& transfer, Chunk chunk) {
    phone->reading -= chunkLength;
    --transfer->reads;
    if (transfer->state == Transfer::State::over) return pump(phone);
    if (chunk.failed) {
        finish(phone, transfer, readErrorText);
    } else if (!chunk.frame) {
        finish(phone, transfer, std::nullopt);
    } else {
        send(phone, *std::move(chunk.frame));
    }
    pump(phone);
}

void FileServer::finish(const PhoneHandle& phone, const TransferHandle& transfer,
                        std::optional<std::string> error) {
    close(*transfer);
    std::erase(phone->open, transfer);
    std::erase(phone->waiting, transfer);
    send(phone, FileFrame{transfer->id, FileFrame::End{std::move(error)}}.encode());
}

void FileServer::send(const PhoneHandle& phone, FrameBuffer frame) {
    const auto link = phone->link.lock();
    if (!link) return;
    link->sendFile(std::move(frame), [weak = weak_from_this(), weakLink = phone->link] {
        const auto self = weak.lock();
        const auto drained = weakLink.lock();
        if (!self || !drained) return;
        self->queue.assertCurrent();
        if (const auto waiting = self->phoneOf(*drained)) self->pump(waiting);
    });
}

void FileServer::forget(const PhoneHandle& phone) {
    for (const auto& transfer : phone->open)
        close(*transfer);
    phone->open.clear();
    phone->waiting.clear();
    phone->retry.cancel();
    std::erase(phones, phone);
}

// The disk may make even this wait.
void FileServer::close(Transfer& transfer) {
    transfer.state = Transfer::State::over;
    if (transfer.file) filesQueue.post([file = std::move(transfer.file)] {});
}

}  // namespace orvel
