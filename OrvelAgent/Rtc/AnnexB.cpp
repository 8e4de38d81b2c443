#include "OrvelAgent/Rtc/AnnexB.h"

#include <algorithm>
#include <array>

namespace orvel {

namespace {

constexpr std::array<std::uint8_t, 4> startCode = {0, 0, 0, 1};

std::uint8_t* writeUnit(ByteView unit, std::uint8_t* to) {
    to = std::copy(startCode.begin(), startCode.end(), to);
    return std::copy(unit.begin(), unit.end(), to);
}

}  // namespace

std::size_t AnnexB::length(const std::vector<ByteView>& parameterSets, ByteView units) {
    std::size_t all = units.size();
    for (const auto set : parameterSets)
        all += startCode.size() + set.size();
    return all;
}

bool AnnexB::write(const std::vector<ByteView>& parameterSets, ByteView units, std::uint8_t* to) {
    for (const auto set : parameterSets)
        to = writeUnit(set, to);
    while (!units.empty()) {
        if (units.size() < startCode.size()) return false;
        const std::size_t length = loadBE32(units.data());
        units = units.subspan(startCode.size());
        if (length > units.size()) return false;
        to = writeUnit(units.first(length), to);
        units = units.subspan(length);
    }
    return true;
}

}  // namespace orvel
