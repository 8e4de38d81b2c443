#pragma once

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace orvel::phone {

// The smallest value that is not below `part` (0 to 1) of all values; nullopt of none.
inline std::optional<double> percentile(std::vector<double> values, double part) {
    if (values.empty()) return std::nullopt;
    const auto rank = static_cast<std::size_t>(std::ceil(part * double(values.size())));
    const auto nth =
        values.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(rank, 1) - 1);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

inline std::optional<double> median(std::vector<double> values) {
    return percentile(std::move(values), 0.5);
}

}  // namespace orvel::phone
