#include "Phone/LatencyProbe.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <cstdlib>

#include "Tests/Support/ScopedEnvironment.h"
#include "Tests/Support/XServer.h"

namespace orvel::phone {

namespace {

// What a pixel of the root window shows, 0xRRGGBB.
std::uint32_t pixelAt(xcb_connection_t* connection, int x, int y) {
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    auto* image = xcb_get_image_reply(
        connection,
        xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root, static_cast<std::int16_t>(x),
                      static_cast<std::int16_t>(y), 1, 1, 0xFFFFFFFF),
        nullptr);
    if (!image) return 0xDEAD;
    const std::uint8_t* bytes = xcb_get_image_data(image);
    const std::uint32_t pixel = std::uint32_t{bytes[2]} << 16 | bytes[1] << 8 | bytes[0];
    std::free(image);
    return pixel;
}

TEST(LatencyProbe, theSquareIsThereWhenShowReturns) {
    const XServer server;
    const ScopedEnvironment display("DISPLAY", server.display());
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    std::string problem;
    auto probe = LatencyProbe::open(100, 50, problem);
    ASSERT_TRUE(probe) << problem;
    for (const bool white : {false, true, false, true}) {
        const auto before = std::chrono::steady_clock::now();
        const auto shownAt = probe->show(white);
        ASSERT_TRUE(shownAt);
        EXPECT_GE(*shownAt, before);
        EXPECT_EQ(pixelAt(connection, 100, 50), white ? 0xFFFFFFu : 0u);
        EXPECT_EQ(pixelAt(connection, 100 + LatencyProbe::size - 1, 50 + LatencyProbe::size - 1),
                  white ? 0xFFFFFFu : 0u);
        EXPECT_NE(pixelAt(connection, 99, 50), 0xFFFFFFu);
    }
    probe.reset();
    std::string none;
    EXPECT_TRUE(LatencyProbe::open(0, 0, none)) << "the server bears a second one";
    xcb_disconnect(connection);
}

TEST(LatencyProbe, aDisplayThatIsNotThereIsSaid) {
    const ScopedEnvironment display("DISPLAY", ":63217");
    std::string problem;
    EXPECT_FALSE(LatencyProbe::open(0, 0, problem));
    EXPECT_NE(problem, "");
}

TEST(LatencyProbe, aServerThatGoesIsNoticed) {
    XServer server;
    const ScopedEnvironment display("DISPLAY", server.display());
    std::string problem;
    const auto probe = LatencyProbe::open(0, 0, problem);
    ASSERT_TRUE(probe) << problem;
    server.kill();
    EXPECT_FALSE(probe->show(true));
}

}  // namespace

}  // namespace orvel::phone
