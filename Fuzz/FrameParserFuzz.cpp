#include <fuzzer/FuzzedDataProvider.h>

#include "Fuzz/Fuzz.h"
#include "OrvelKit/Wire/Framing.h"

// A stream gives the same frames and the same error however it is cut. Cuts and limits are taken
// from the input's end, so that a plain stream is a good seed.

namespace orvel {
namespace {

struct Outcome {
    std::vector<Frame> frames;
    std::optional<FramingError> error;
};

template <class Piecewise>
Outcome outcomeOf(Piecewise pieces) {
    Outcome outcome;
    try {
        pieces(outcome.frames);
    } catch (const FramingError& error) {
        outcome.error = error;
    }
    return outcome;
}

void check(FuzzedDataProvider input) {
    FrameParser::Limits limits;
    if (input.ConsumeBool()) limits.onlyKind = FrameKind{input.ConsumeIntegral<std::uint8_t>()};
    if (input.ConsumeBool()) limits.maxPayload = input.ConsumeIntegralInRange<std::size_t>(0, 300);
    std::vector<std::size_t> lengths(input.ConsumeIntegralInRange<std::size_t>(0, 20));
    for (auto& length : lengths)
        length = input.ConsumeIntegral<std::uint8_t>();
    const Bytes stream = input.ConsumeRemainingBytes<std::uint8_t>();

    const auto inPieces = [&](auto take) {
        ByteView rest = stream;
        for (const std::size_t length : lengths) {
            const ByteView piece = rest.first(std::min(length, rest.size()));
            rest = rest.subspan(piece.size());
            take(piece);
        }
        take(rest);
    };
    const auto takeAll = [](FrameParser& parser, ByteView piece, const FrameParser::Limits& judge,
                            std::vector<Frame>& frames) {
        while (auto frame = parser.next(piece, judge))
            frames.push_back(*std::move(frame));
        claim(piece.empty(), "what is left over is taken in");
    };

    FrameParser whole, cut;
    const Outcome one = outcomeOf([&](auto& frames) { takeAll(whole, stream, limits, frames); });
    const Outcome many = outcomeOf([&](auto& frames) {
        inPieces([&](ByteView piece) { takeAll(cut, piece, limits, frames); });
    });
    claim(one.frames == many.frames, "cutting changes no frame");
    claim(one.error == many.error, "cutting changes no error");

    // feed() follows, except that a call that throws returns nothing.
    FrameParser fedWhole, fedCut;
    const Outcome fed = outcomeOf([&](auto& frames) { frames = fedWhole.feed(stream); });
    const Outcome fedPieces = outcomeOf([&](auto& frames) {
        inPieces([&](ByteView piece) {
            for (Frame& frame : fedCut.feed(piece))
                frames.push_back(std::move(frame));
        });
    });
    claim(fed.error == fedPieces.error, "cutting changes no error of feed");
    if (!fed.error) claim(fed.frames == fedPieces.frames, "cutting changes no frame of feed");

    // Frames and what is left of the stream are the stream.
    std::size_t used = 0;
    for (const Frame& frame : one.frames) {
        const Bytes bytes = Framing::encode(frame.kind, frame.payload);
        claim(std::equal(bytes.begin(), bytes.end(), stream.begin() + used), "encoding inverts");
        used += bytes.size();
    }
}

}  // namespace
}  // namespace orvel

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    orvel::check(FuzzedDataProvider(data, size));
    return 0;
}
