#include "OrvelAgent/Rtc/PhoneOffer.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <system_error>
#include <vector>

namespace orvel {

namespace {

bool startsWith(std::string_view text, std::string_view with) {
    return text.substr(0, with.size()) == with;
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (auto& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

// What follows `name` and the payload type in a line such as "a=rtpmap:96 H264/90000".
bool readAttribute(std::string_view line, std::string_view name, std::string& payloadType,
                   std::string_view& value) {
    if (!startsWith(line, name)) return false;
    line.remove_prefix(name.size());
    const auto space = line.find(' ');
    if (space == std::string_view::npos) return false;
    payloadType = line.substr(0, space);
    value = line.substr(space + 1);
    return true;
}

constexpr std::string_view messageSize = "a=max-message-size:";
constexpr std::size_t usualMessageSize = 65'536;  // where the offer does not say

// Digits, which 32 bits hold.
std::optional<std::size_t> readSize(std::string_view text) {
    while (!text.empty() && text.back() == '\r')
        text.remove_suffix(1);
    std::int32_t size = 0;
    const auto* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, size);
    if (text.empty() || read.ec != std::errc() || read.ptr != end || size < 0) return std::nullopt;
    return static_cast<std::size_t>(size);
}

// Of the kinds that the library knows: in an answer to any other it has no section to write.
bool isKnownSection(std::string_view mediaLine) {
    const auto fields = split(mediaLine, ' ');
    constexpr std::size_t protocol = 2;
    if (fields.front() == "m=audio" || fields.front() == "m=video") return true;
    if (fields.front() != "m=application" || fields.size() <= protocol) return false;
    const auto name = fields[protocol];
    return name == "UDP/DTLS/SCTP" || name == "TCP/DTLS/SCTP" || name == "DTLS/SCTP";
}

struct Codec {
    bool isH264 = false;
    bool isFragmented = false;  // packetization-mode=1 (RFC 6184): a NAL unit over many packets
    std::string profile;        // "640c1f"; empty is Baseline
};

// Smaller is preferred.
int rank(const Codec& codec) {
    if (!codec.isH264 || !codec.isFragmented) return 2;
    return startsWith(codec.profile, "64") ? 0 : 1;
}

class Section {
public:
    void read(std::string_view line) {
        std::string type;
        std::string_view value;
        if (readAttribute(line, "a=rtpmap:", type, value)) {
            codecs[type].isH264 = startsWith(lowerCase(value), "h264/");
        } else if (readAttribute(line, "a=fmtp:", type, value)) {
            for (const auto parameter : split(value, ';')) {
                const auto first = parameter.find_first_not_of(' ');
                if (first == std::string_view::npos) continue;
                const auto pair = lowerCase(parameter.substr(first));
                if (pair == "packetization-mode=1") codecs[type].isFragmented = true;
                constexpr std::string_view profile = "profile-level-id=";
                if (startsWith(pair, profile)) codecs[type].profile = pair.substr(profile.size());
            }
        }
    }

    // "m=video 9 UDP/TLS/RTP/SAVPF 96 97" in this section's order of preference.
    std::string reordered(std::string_view mediaLine) const {
        constexpr std::size_t fieldsBeforeTypes = 3;
        auto fields = split(mediaLine, ' ');
        if (fields.size() <= fieldsBeforeTypes) return std::string(mediaLine);
        const auto rankOf = [&](std::string_view type) {
            const auto found = codecs.find(std::string(type));
            return rank(found == codecs.end() ? Codec() : found->second);
        };
        std::stable_sort(fields.begin() + fieldsBeforeTypes, fields.end(),
                         [&](auto a, auto b) { return rankOf(a) < rankOf(b); });
        std::string line(fields.front());
        for (std::size_t i = 1; i < fields.size(); ++i)
            (line += ' ') += fields[i];
        return line;
    }

private:
    std::map<std::string, Codec> codecs;  // by payload type
};

}  // namespace

bool PhoneOffer::isPlausible(std::string_view offer) {
    if (offer.size() > maxBytes || offer.find('\0') != std::string_view::npos) return false;
    const auto lines = split(offer, '\n');
    if (lines.size() > maxLines) return false;
    int sections = 0;
    for (const auto line : lines) {
        if (startsWith(line, "m=") && (++sections > maxSections || !isKnownSection(line))) {
            return false;
        }
        if (startsWith(line, messageSize) && !readSize(line.substr(messageSize.size()))) {
            return false;
        }
    }
    return true;
}

std::size_t PhoneOffer::maxMessageBytes(std::string_view offer, std::size_t most) {
    auto size = usualMessageSize;
    for (const auto line : split(offer, '\n')) {
        if (!startsWith(line, messageSize)) continue;
        size = readSize(line.substr(messageSize.size())).value_or(usualMessageSize);
        if (size == 0) size = most;  // any
    }
    return std::min(size, most);
}

std::string PhoneOffer::preferH264(const std::string& offer) {
    auto lines = split(offer, '\n');
    const auto lineEnd = [](std::string_view line) {
        return !line.empty() && line.back() == '\r' ? std::string_view("\r") : std::string_view();
    };
    const auto content = [&](std::string_view line) {
        return line.substr(0, line.size() - lineEnd(line).size());
    };
    std::string result;
    result.reserve(offer.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) result += '\n';
        if (!startsWith(lines[i], "m=video ")) {
            result += lines[i];
            continue;
        }
        Section section;
        for (std::size_t j = i + 1; j < lines.size() && !startsWith(lines[j], "m="); ++j)
            section.read(content(lines[j]));
        (result += section.reordered(content(lines[i]))) += lineEnd(lines[i]);
    }
    return result;
}

}  // namespace orvel
