#include "OrvelAgent/Update/VersionOrder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel {
namespace {

TEST(VersionOrder, isThatOfPackages) {
    // Older to newer; what stands in one row is the same.
    const std::vector<std::vector<std::string>> rows = {
        {"~", "~0"},
        {"", "0", "-", "0:00", "-0"},
        {"0.0"},
        {"0.1.0~rc2-0orvel1"},
        {"0.1.0~rc10-0orvel1"},
        {"0.1.0", "0.1.0-0", "00.01.000"},
        {"0.1.0-0orvel1"},
        {"0.1.0-0orvel2"},
        {"0.1.0-1~bpo12"},
        {"0.1.0-1"},
        {"0.1.0+git20261121.090000.d0570b76-0orvel1"},
        {"0.1.0+git20261121.184702.00000000-0orvel1"},
        {"0.1.0.1"},
        {"0.1.1"},
        {"0.2"},
        {"0.10"},
        {"1.0beta2"},
        {"1.0+2"},
        {"1.0-1-1"},
        {"2.18446744073709551616"},
        {"2.18446744073709551617"},
        {"3-9"},
        {"1:0.1"},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t j = 0; j < rows.size(); ++j) {
            for (const auto& a : rows[i]) {
                for (const auto& b : rows[j])
                    EXPECT_EQ(compareVersions(a, b), i < j ? -1 : i > j ? 1 : 0) << a << " " << b;
            }
        }
    }
}

}  // namespace
}  // namespace orvel
