#include <benchmark/benchmark.h>

#include <cstring>

#include "Benchmarks/AllocationCounter.h"
#include "Benchmarks/Interleaved.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Files.h"
#include "OrvelKit/Wire/Framing.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel {
namespace {

constexpr std::size_t chunkLength = 65'536;  // what a connection reads at most in one go

Bytes pattern(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 2654435761u >> 24);
    return bytes;
}

Bytes streamOf(std::size_t frames, std::size_t payloadLength) {
    const Bytes payload = pattern(payloadLength);
    Bytes stream;
    for (std::size_t i = 0; i < frames; ++i)
        append(stream, Framing::encode(FrameKind::sealed, payload));
    return stream;
}

template <class Take>
void inChunks(ByteView stream, Take take) {
    for (; !stream.empty(); stream = stream.subspan(std::min(chunkLength, stream.size())))
        take(stream.first(std::min(chunkLength, stream.size())));
}

// A stream of frames of state.range(0) payload bytes, 4 MiB or one frame at least, cut as a
// connection receives it, against one memcpy of each chunk into a buffer that stays in the cache.
void parseFrames(benchmark::State& state) {
    const auto payloadLength = static_cast<std::size_t>(state.range(0));
    const std::size_t frames = std::max<std::size_t>(1, (4u << 20) / payloadLength);
    const Bytes stream = streamOf(frames, payloadLength);
    Bytes target(chunkLength);
    std::size_t found = 0;
    runInterleaved(
        state, stream.size(),
        [&] {
            inChunks(stream, [&](ByteView chunk) {
                std::memcpy(target.data(), chunk.data(), chunk.size());
                benchmark::DoNotOptimize(target.data());
                benchmark::ClobberMemory();
            });
        },
        [&] {
            FrameParser parser;
            inChunks(stream, [&](ByteView chunk) {
                while (auto frame = parser.next(chunk, {})) {
                    benchmark::DoNotOptimize(frame->payload.data());
                    benchmark::ClobberMemory();
                    ++found;
                }
            });
        });
    if (found != frames * static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("frames lost");
}
BENCHMARK(parseFrames)
    ->Arg(100)
    ->Arg(1'400)
    ->Arg(65'536)
    ->Arg(1 << 20)
    ->Arg(16 << 20)
    ->UseManualTime();

// The way of a picture from the encoder's memory into the buffer that is sealed and sent, against
// one memcpy into fresh memory. `bytesPerByte` 1.00: one copy.
void encodeVideoFrame(benchmark::State& state) {
    const Bytes picture = pattern(static_cast<std::size_t>(state.range(0)));
    Allocations used;
    runInterleaved(
        state, picture.size(),
        [&] {
            const auto target = std::make_unique_for_overwrite<std::uint8_t[]>(picture.size());
            std::memcpy(target.get(), picture.data(), picture.size());
            benchmark::DoNotOptimize(target.get());
            benchmark::ClobberMemory();
        },
        [&] {
            const Allocations before = Allocations::soFar();
            FrameBuffer buffer = VideoFrame::encode(true, 1, picture);
            benchmark::DoNotOptimize(buffer.whole().data());
            benchmark::ClobberMemory();
            used = Allocations::soFar() - before;
        });
    state.counters["allocations"] = static_cast<double>(used.calls);
    state.counters["bytesPerByte"] =
        static_cast<double>(used.bytes) / static_cast<double>(picture.size());
}
BENCHMARK(encodeVideoFrame)->Arg(4'096)->Arg(65'536)->Arg(400'000)->UseManualTime();

void controlRoundTrip(benchmark::State& state, const Control& control) {
    const std::size_t length = control.toJson().size();
    for (auto step : state) {
        (void)step;
        benchmark::DoNotOptimize(Control::fromJson(control.toJson()));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(length) * state.iterations());
}

Control listing(std::size_t entries) {
    DirectoryListing listing{"/home", "/", std::vector<FileEntry>(entries), {}};
    for (std::size_t i = 0; i < entries; ++i) {
        listing.entries[i] = {"picture " + std::to_string(i) + ".jpeg", false, 4'000'000,
                              fromSecondsSinceReferenceDate(7e8 + 1.1 * double(i))};
    }
    return {listing};
}

BENCHMARK_CAPTURE(controlRoundTrip, move, Control{Control::Move{3.5, -1}});
BENCHMARK_CAPTURE(controlRoundTrip, text, Control{Control::Text{"merhaba dünya"}});
BENCHMARK_CAPTURE(controlRoundTrip, listing_1k, listing(1'000))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(controlRoundTrip, listing_100k, listing(100'000))->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace orvel
