// An admitted phone that sends any controls with any numbers, names and texts, in any order, to
// everything that it may act on. Its link may have to end; nothing else may.

#include <cmath>
#include <cstring>

#include "Fuzz/Fuzz.h"
#include "Fuzz/Pieces.h"
#include "OrvelAgent/Core/ControlDispatch.h"
#include "OrvelAgent/Desk/FakePhoneLink.h"
#include "OrvelAgent/Platform/Fake/FakeCompressionSession.h"
#include "OrvelAgent/Platform/Fake/FakeEventPoster.h"
#include "OrvelAgent/Platform/Fake/FakeFileSystem.h"
#include "OrvelAgent/Platform/Fake/FakeScreenSource.h"

using namespace orvel;

namespace {

// Posts nothing that an event cannot carry, and no place off its display.
class StrictPoster : public FakeEventPoster {
public:
    void postMotion(Motion motion, Point to, std::int64_t dx, std::int64_t dy) override {
        claim(to.x >= 0 && to.x < 1280 && to.y >= 0 && to.y < 720,
              "the pointer stays on a display");
        FakeEventPoster::postMotion(motion, to, dx, dy);
        events.clear();
    }
    void postText(std::u16string_view units) override {
        claim(!units.empty() && units.size() <= 16, "text comes in chunks");
        claim(units.find(u'\n') == units.npos, "line feeds are keys");
    }
};

template <class Number>
Number number(Pieces& pieces) {
    std::uint8_t raw[sizeof(Number)];
    for (auto& byte : raw)
        byte = pieces.byte();
    Number value;
    std::memcpy(&value, raw, sizeof value);
    return value;
}

// JSON carries no infinities and no NaN.
double finite(Pieces& pieces) {
    const auto value = number<double>(pieces);
    return std::isfinite(value) ? value : 0;
}

std::string text(Pieces& pieces) {
    const auto bytes = pieces.piece();
    return {bytes.begin(), bytes.end()};
}

Control control(Pieces& pieces) {
    const std::uint8_t which = pieces.byte(), how = pieces.byte();
    switch (which % 12) {
        case 0:
            return {Control::Move{finite(pieces), finite(pieces)}};
        case 1:
            return {Control::MoveTo{finite(pieces), finite(pieces)}};
        case 2:
            return {Control::Button{how & 1 ? MouseButton::left : MouseButton::right,
                                    (how & 2) != 0, number<std::int64_t>(pieces)}};
        case 3:
            return {
                Control::Scroll{finite(pieces), finite(pieces), static_cast<ScrollPhase>(how % 5)}};
        case 4:
            return {Control::Key{number<std::uint16_t>(pieces), (how & 1) != 0, {how}}};
        case 5:
            return {Control::Text{text(pieces)}};
        case 6:
            return {Control::SelectDisplay{how}};
        case 7:
            return {Control::Audio{(how & 1) != 0}};
        case 8:
            return {Control::ListDirectory{how & 1 ? std::optional(text(pieces)) : std::nullopt}};
        case 9:
            return {Control::FetchFile{how, text(pieces)}};
        case 10:
            return {Control::CancelFetch{how}};
        default:
            return {Control::Clipboard{text(pieces)}};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Pieces pieces({data, size});
    VirtualTime time;
    SerialQueue queue("orvel.agent", time), capture("orvel.capture", time),
        audio("orvel.audio", time), filesQueue("orvel.files", time);
    FakeFileSystem files;
    files.entries["/a"] = {true};
    files.entries["/a/b"] = {.content = std::string(200'000, 'x')};
    files.entries["/a/\xFF"] = {.content = "", .readable = 0};
    files.entries["/no"] = {.isDirectory = true, .isDenied = true};
    StrictPoster poster;
    auto screen = std::make_shared<FakeScreen>(capture, audio);
    auto compression = std::make_shared<FakeCompression>();
    auto streamer = std::make_shared<ScreenStreamer>(
        capture, audio, std::make_unique<FakeScreenSource>(capture, screen),
        compression->factory());
    auto link = std::make_shared<FakePhoneLink>();
    {
        std::optional<ControlDispatch> dispatch;
        dispatch.emplace(ControlDispatch::Parts{queue, filesQueue, poster, files, "/a", streamer},
                         ControlDispatch::Routes{[](PhoneLink&, const Hello&) {},
                                                 [&](PhoneLink&, std::uint32_t display) {
                                                     dispatch->displayCaptured(display);
                                                 },
                                                 [](const std::string&) {}});
        const auto onQueue = [&](auto action) {
            queue.post(action);
            time.runPending();
        };
        while (!pieces.isEmpty() && !link->isClosed) {
            const Control next = control(pieces);
            onQueue([&] { dispatch->dispatch(next, link, true); });
            const std::uint8_t after = pieces.byte();
            link->isStalled = (after & 1) != 0;
            if (!link->isStalled) onQueue([&] { link->letGo(1'000); });
            if (after & 2) time.advance(std::chrono::milliseconds(after));
            link->controls.clear();
            link->fileFrames.clear();
        }
        onQueue([&] { dispatch->linkEnded(*link, true); });
        time.advance(std::chrono::seconds(1));
        claim(files.filesOpen == 0, "no file stays open after its phone");
        claim(!poster.events.empty() && poster.events.back() == "release all",
              "nothing stays pressed after the phone");
        onQueue([&] { dispatch.reset(); });
    }
    streamer.reset();
    time.runPending();
    return 0;
}
