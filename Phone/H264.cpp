#include "Phone/H264.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <vector>

namespace orvel::phone {

namespace {

constexpr std::uint8_t sliceType = 1, idrType = 5, spsType = 7, ppsType = 8;

std::uint8_t typeOf(ByteView nalUnit) {
    return nalUnit.empty() ? 0 : nalUnit[0] & 0x1F;
}

// The payload of a NAL unit without its header and without emulation prevention bytes.
Bytes rawPayload(ByteView nalUnit, std::size_t most) {
    Bytes raw;
    int zeros = 0;
    for (std::size_t i = 1; i < nalUnit.size() && raw.size() < most; ++i) {
        const std::uint8_t byte = nalUnit[i];
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        raw.push_back(byte);
    }
    return raw;
}

// Reading past the end yields zeros and marks the reader.
class BitReader {
public:
    explicit BitReader(Bytes rawBytes) : bytes(std::move(rawBytes)) {}

    std::uint32_t bits(unsigned count) {
        std::uint32_t value = 0;
        while (count-- > 0)
            value = value << 1 | bit();
        return value;
    }
    bool flag() { return bits(1) != 0; }
    std::uint32_t unsignedGolomb() {
        unsigned zeros = 0;
        while (!pastEnd && !flag())
            ++zeros;
        if (zeros > 31) pastEnd = true;
        return pastEnd ? 0 : (std::uint32_t{1} << zeros) - 1 + bits(zeros);
    }
    std::int32_t signedGolomb() {
        const std::uint32_t code = unsignedGolomb();
        const auto magnitude = static_cast<std::int32_t>(code / 2 + code % 2);
        return code % 2 ? magnitude : -magnitude;
    }
    bool isPastEnd() const { return pastEnd; }

private:
    std::uint32_t bit() {
        if (position >= bytes.size() * 8) {
            pastEnd = true;
            return 0;
        }
        const std::uint32_t value = bytes[position / 8] >> (7 - position % 8) & 1;
        ++position;
        return value;
    }

    const Bytes bytes;
    std::size_t position = 0;
    bool pastEnd = false;
};

void skipScalingList(BitReader& reader, int size) {
    std::int64_t last = 8, next = 8;
    for (int i = 0; i < size && !reader.isPastEnd(); ++i) {
        if (next != 0) next = (last + reader.signedGolomb()) & 0xFF;
        if (next != 0) last = next;
    }
}

bool hasChromaFormat(std::uint32_t profile) {
    for (const std::uint32_t known : {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134}) {
        if (profile == known) return true;
    }
    return false;
}

// The first slice of a picture, of units behind 4-byte lengths.
ByteView firstSlice(ByteView data) {
    while (data.size() >= 4) {
        const std::size_t length = loadBE32(data.data());
        data = data.subspan(4);
        if (length > data.size()) return {};
        const ByteView unit = data.first(length);
        if (typeOf(unit) == sliceType || typeOf(unit) == idrType) return unit;
        data = data.subspan(length);
    }
    return {};
}

}  // namespace

std::optional<SequenceParameters> SequenceParameters::parse(ByteView nalUnit) {
    if (typeOf(nalUnit) != spsType) return std::nullopt;
    BitReader reader(rawPayload(nalUnit, nalUnit.size()));
    const std::uint32_t profile = reader.bits(8);
    reader.bits(16);          // constraint flags, level
    reader.unsignedGolomb();  // identifier
    std::uint32_t chromaFormat = 1;
    bool separatePlanes = false;
    if (hasChromaFormat(profile)) {
        chromaFormat = reader.unsignedGolomb();
        if (chromaFormat == 3) separatePlanes = reader.flag();
        reader.unsignedGolomb();  // luma depth
        reader.unsignedGolomb();  // chroma depth
        reader.flag();            // transform bypass
        if (reader.flag()) {
            const int lists = chromaFormat == 3 ? 12 : 8;
            for (int i = 0; i < lists; ++i) {
                if (reader.flag()) skipScalingList(reader, i < 6 ? 16 : 64);
            }
        }
    }
    SequenceParameters parameters;
    const std::uint32_t extraNumberBits = reader.unsignedGolomb();
    const std::uint32_t orderType = reader.unsignedGolomb();
    if (orderType == 0) {
        reader.unsignedGolomb();
    } else if (orderType == 1) {
        reader.flag();
        reader.signedGolomb();
        reader.signedGolomb();
        std::uint32_t cycle = reader.unsignedGolomb();
        while (cycle-- > 0 && !reader.isPastEnd())
            reader.signedGolomb();
    }
    reader.unsignedGolomb();  // reference frames
    reader.flag();            // gaps allowed
    const std::uint64_t columns = std::uint64_t{reader.unsignedGolomb()} + 1;
    const std::uint64_t mapRows = std::uint64_t{reader.unsignedGolomb()} + 1;
    const bool framesOnly = reader.flag();
    if (!framesOnly) reader.flag();
    reader.flag();  // direct 8x8 inference
    std::uint64_t left = 0, right = 0, top = 0, bottom = 0;
    if (reader.flag()) {
        left = reader.unsignedGolomb();
        right = reader.unsignedGolomb();
        top = reader.unsignedGolomb();
        bottom = reader.unsignedGolomb();
    }
    if (reader.isPastEnd() || extraNumberBits > 12 || chromaFormat > 3) return std::nullopt;

    const bool subsampledX = !separatePlanes && (chromaFormat == 1 || chromaFormat == 2);
    const bool subsampledY = !separatePlanes && chromaFormat == 1;
    const std::uint64_t fields = framesOnly ? 1 : 2;
    const std::uint64_t width = columns * 16, height = mapRows * 16 * fields;
    const std::uint64_t cutX = (left + right) * (subsampledX ? 2 : 1);
    const std::uint64_t cutY = (top + bottom) * (subsampledY ? 2 : 1) * fields;
    constexpr std::uint64_t most = 16384;
    if (width > most || height > most || cutX >= width || cutY >= height) return std::nullopt;
    parameters.width = static_cast<int>(width - cutX);
    parameters.height = static_cast<int>(height - cutY);
    parameters.frameNumberBits = extraNumberBits + 4;
    return parameters;
}

Bytes avcConfiguration(const VideoFormat& format) {
    std::vector<ByteView> sequence, picture;
    for (const Bytes& set : format.parameterSets) {
        if (typeOf(set) == spsType && set.size() >= 4) sequence.push_back(set);
        if (typeOf(set) == ppsType) picture.push_back(set);
    }
    if (sequence.empty() || picture.empty() || sequence.size() > 31 || picture.size() > 255) {
        return {};
    }
    Bytes record{1, sequence[0][1], sequence[0][2], sequence[0][3], 0xFF};  // 4-byte lengths
    const auto appendSet = [&](ByteView set) {
        record.push_back(static_cast<std::uint8_t>(set.size() >> 8));
        record.push_back(static_cast<std::uint8_t>(set.size()));
        append(record, set);
    };
    record.push_back(static_cast<std::uint8_t>(0xE0 | sequence.size()));
    for (const ByteView set : sequence)
        appendSet(set);
    record.push_back(static_cast<std::uint8_t>(picture.size()));
    for (const ByteView set : picture)
        appendSet(set);
    const std::uint8_t profile = sequence[0][1];
    if (profile == 100 || profile == 110 || profile == 122 || profile == 144) {
        append(record, Bytes{0xFC | 1, 0xF8, 0xF8, 0});  // 4:2:0, 8 bits, no extensions
    }
    return record;
}

AccessUnit AccessUnit::fromByteStream(ByteView bytes) {
    static constexpr std::array<std::uint8_t, 3> startCode = {0, 0, 1};
    const auto nextStart = [](ByteView from) {
        return std::search(from.begin(), from.end(), startCode.begin(), startCode.end());
    };
    AccessUnit unit;
    std::vector<Bytes> pictureSets;
    for (auto start = nextStart(bytes); start != bytes.end();) {
        const ByteView rest(start + startCode.size(), bytes.end());
        const auto length = static_cast<std::size_t>(nextStart(rest) - rest.begin());
        ByteView nalUnit = rest.first(length);
        // Zeros behind a NAL unit are none of its own: it ends with a bit that is set.
        while (!nalUnit.empty() && nalUnit.back() == 0)
            nalUnit = nalUnit.first(nalUnit.size() - 1);
        start += static_cast<std::ptrdiff_t>(startCode.size() + length);
        if (nalUnit.empty()) continue;
        if (typeOf(nalUnit) == spsType || typeOf(nalUnit) == ppsType) {
            auto& sets = typeOf(nalUnit) == spsType ? unit.parameterSets : pictureSets;
            sets.emplace_back(nalUnit.begin(), nalUnit.end());
            continue;
        }
        unit.data.resize(unit.data.size() + 4);
        storeBE32(unit.data.data() + unit.data.size() - 4,
                  static_cast<std::uint32_t>(nalUnit.size()));
        append(unit.data, nalUnit);
    }
    std::move(pictureSets.begin(), pictureSets.end(), std::back_inserter(unit.parameterSets));
    return unit;
}

void FrameNumbers::start(const SequenceParameters& parameters) {
    bits = parameters.frameNumberBits;
    previous.reset();
}

bool FrameNumbers::follows(const VideoFrame& frame) {
    const ByteView slice = firstSlice(frame.data);
    if (bits == 0 || slice.empty()) return true;
    BitReader reader(rawPayload(slice, 32));
    reader.unsignedGolomb();  // first macroblock
    reader.unsignedGolomb();  // slice type
    reader.unsignedGolomb();  // picture parameter set
    const std::uint32_t number = reader.bits(bits);
    if (reader.isPastEnd()) return true;
    const bool restarts = typeOf(slice) == idrType;
    const bool good = restarts || (previous && number == ((*previous + 1) & ((1U << bits) - 1)));
    const bool isReference = (slice[0] & 0x60) != 0;
    if (isReference || !good) previous = number;
    return good;
}

}  // namespace orvel::phone
