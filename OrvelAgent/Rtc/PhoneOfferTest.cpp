#include "OrvelAgent/Rtc/PhoneOffer.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Rtc/AnnexB.h"

namespace orvel {
namespace {

const std::string codecs =
    "a=rtpmap:96 VP8/90000\r\n"
    "a=rtpmap:97 rtx/90000\r\na=fmtp:97 apt=96\r\n"
    "a=rtpmap:98 H264/90000\r\n"
    "a=fmtp:98 level-asymmetry-allowed=1;packetization-mode=1;profile-level-id=42e01f\r\n"
    "a=rtpmap:99 h264/90000\r\na=fmtp:99 packetization-mode=0;profile-level-id=640c1f\r\n"
    "a=rtpmap:100 H264/90000\r\na=fmtp:100 profile-level-id=64001F; packetization-mode=1\r\n";

struct Row {
    const char* name;
    std::string before, after;  // the media line
};
const Row rows[] = {
    {"High, Baseline, the others as they were", "m=video 9 UDP/TLS/RTP/SAVPF 96 97 98 99 100",
     "m=video 9 UDP/TLS/RTP/SAVPF 100 98 96 97 99"},
    {"types that nothing is said about", "m=video 9 UDP/TLS/RTP/SAVPF 35 98 7 ",
     "m=video 9 UDP/TLS/RTP/SAVPF 98 35 7 "},
    {"no types", "m=video 9 UDP/TLS/RTP/SAVPF", "m=video 9 UDP/TLS/RTP/SAVPF"},
    {"cut off", "m=video 9", "m=video 9"},
    {"no video", "m=audio 9 UDP/TLS/RTP/SAVPF 96 98", "m=audio 9 UDP/TLS/RTP/SAVPF 96 98"},
};

TEST(PhoneOffer, putsTheUsableH264First) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const std::string before : {"", "v=0\r\nm=application 9 x 98 96\r\na=mid:0\r\n"}) {
            EXPECT_EQ(PhoneOffer::preferH264(before + row.before + "\r\n" + codecs),
                      before + row.after + "\r\n" + codecs);
        }
    }
    EXPECT_EQ(PhoneOffer::preferH264("m=video 9 x 96 98\n" + codecs),
              "m=video 9 x 98 96\n" + codecs)
        << "lines that end without a carriage return";
    // The types of one section mean nothing in another.
    const std::string two = "m=video 9 x 96 98\r\nm=video 9 x 96 98\r\n" + codecs;
    EXPECT_EQ(PhoneOffer::preferH264(two), "m=video 9 x 96 98\r\nm=video 9 x 98 96\r\n" + codecs);
    for (const std::string nothing : {"", "\r\n", "m=video ", "a=fmtp:", "m=video 9 x 96\n\n"})
        EXPECT_EQ(PhoneOffer::preferH264(nothing), nothing);
}

TEST(PhoneOffer, knowsWhatNoPhoneOffers) {
    const auto lines = [](std::size_t count, const std::string& line) {
        std::string all;
        while (count-- > 0)
            all += line;
        return all;
    };
    EXPECT_TRUE(PhoneOffer::isPlausible("v=0\r\n" + codecs));
    EXPECT_TRUE(PhoneOffer::isPlausible(lines(PhoneOffer::maxSections, "m=audio\n")));
    EXPECT_FALSE(PhoneOffer::isPlausible(lines(PhoneOffer::maxSections + 1, "m=audio\n")));
    EXPECT_TRUE(PhoneOffer::isPlausible(lines(PhoneOffer::maxLines - 1, "a\n")));
    EXPECT_FALSE(PhoneOffer::isPlausible(lines(PhoneOffer::maxLines, "a\n")));
    EXPECT_TRUE(PhoneOffer::isPlausible(std::string(PhoneOffer::maxBytes, 'a')));
    EXPECT_FALSE(PhoneOffer::isPlausible(std::string(PhoneOffer::maxBytes + 1, 'a')));
    EXPECT_FALSE(PhoneOffer::isPlausible(std::string_view("v=0\0", 4)));
    EXPECT_TRUE(PhoneOffer::isPlausible("m=application 9 UDP/DTLS/SCTP webrtc-datachannel\r\n"));
    for (const char* strange : {"m=", "m=text 9 x 1", "m=audiox 9", "m=application",
                                "m=application 9 RTP/AVP 1", "m=application 9 SCTP 5000"})
        EXPECT_FALSE(PhoneOffer::isPlausible(strange)) << strange;
}

TEST(PhoneOffer, saysHowLongAMessageMayBe) {
    const struct {
        std::string value;
        std::size_t want;  // 0: not plausible
    } sizes[] = {{"1", 1},
                 {"262144\r", 262'144},
                 {"262145", 262'144},
                 {"0", 262'144},
                 {"2147483647", 262'144},
                 {"2147483648", 0},
                 {"-1", 0},
                 {" 7", 0},
                 {"+7", 0},
                 {"", 0}};
    for (const auto& size : sizes) {
        SCOPED_TRACE(size.value);
        const auto offer = "v=0\r\na=max-message-size:" + size.value + "\n";
        EXPECT_EQ(PhoneOffer::isPlausible(offer), size.want != 0);
        if (size.want == 0) continue;
        EXPECT_EQ(PhoneOffer::maxMessageBytes(offer, 262'144), size.want);
    }
    EXPECT_EQ(PhoneOffer::maxMessageBytes("v=0\r\n", 262'144), 65'536u);
}

TEST(AnnexB, replacesLengthsByStartCodes) {
    const Bytes sps = {0x67, 1}, pps = {0x68};
    const Bytes units = {0, 0, 0, 2, 0x65, 9, 0, 0, 0, 1, 0x41};
    Bytes stream(AnnexB::length({sps, pps}, units));
    ASSERT_TRUE(AnnexB::write({sps, pps}, units, stream.data()));
    EXPECT_EQ(stream, (Bytes{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68,  //
                             0, 0, 0, 1, 0x65, 9, 0, 0, 0, 1, 0x41}));
    // Cut anywhere but between the units, it is not a stream.
    for (std::size_t cut = 0; cut < units.size(); ++cut) {
        SCOPED_TRACE(cut);
        const auto part = ByteView(units).first(cut);
        Bytes room(AnnexB::length({}, part));
        EXPECT_EQ(AnnexB::write({}, part, room.data()), cut == 0 || cut == 6);
    }
}

}  // namespace
}  // namespace orvel
