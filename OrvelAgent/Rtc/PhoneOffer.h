#pragma once

#include <string>
#include <string_view>

namespace orvel {

// What has to be known of a phone's session description (RFC 8866) before the library gets it.
struct PhoneOffer {
    static constexpr std::size_t maxBytes = 256 * 1024;
    static constexpr int maxSections = 16;
    static constexpr std::size_t maxLines = 4096;

    // False: larger than any phone's, or with what the library does not refuse but stop at.
    static bool isPlausible(std::string_view offer);

    // The longest message that the phone takes on a data channel (RFC 8841), at most `most`.
    static std::size_t maxMessageBytes(std::string_view offer, std::size_t most);

    // The offer with the payload types of its video sections in another order: first the kinds of
    // H.264 that this end can send, High before Baseline, then the rest as they were. The library
    // sends the first codec of the offer that it knows, whatever order the answer has. A
    // description that it cannot read is returned as it is.
    static std::string preferH264(const std::string& offer);
    PhoneOffer() = delete;
};

}  // namespace orvel
