#include "OrvelKit/Base/Bytes.h"

#include <gtest/gtest.h>

#include <cmath>

#include "OrvelKit/Base/Clock.h"

namespace orvel {
namespace {

TEST(Base64, roundTripsTheStandardsVectors) {
    const std::pair<const char*, const char*> rows[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"},
                                                        {"\xFF\xFE\xFD", "//79"}};
    for (const auto& [plain, text] : rows) {
        SCOPED_TRACE(text);
        EXPECT_EQ(base64(bytesOf(plain)), text);
        const auto back = fromBase64(text);
        ASSERT_TRUE(back);
        EXPECT_EQ(textOf(*back), plain);
    }
}

TEST(Base64, refusesWhatIsNotExactlyThat) {
    for (const char* text : {"Zg", "Zg=", "Zg===", "Z===", "====", "Zh==", "Zm9=", "Zm 9", "Zm9v\n",
                             "Zg==Zg==", "Zm-_"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(fromBase64(text));
    }
}

TEST(Clock, aDateGivesItselfAgain) {
    for (const double seconds :
         {784'512'342.55, 784'512'342.55000007, -0.1, 1.5, 16'777'217.3, 7e9 / 3}) {
        SCOPED_TRACE(seconds);
        const WallTime date = fromSecondsSinceReferenceDate(seconds);
        EXPECT_EQ(fromSecondsSinceReferenceDate(secondsSinceReferenceDate(date)), date);
        EXPECT_NEAR(secondsSinceReferenceDate(date), seconds, 1e-9);
    }
}

TEST(Clock, datesCountFrom2001AndForeignValuesSaturate) {
    EXPECT_EQ(secondsSinceReferenceDate(WallTime(std::chrono::seconds(978'307'210))), 10.0);
    EXPECT_EQ(fromSecondsSinceReferenceDate(10), WallTime(std::chrono::seconds(978'307'210)));
    EXPECT_EQ(fromSecondsSinceReferenceDate(1e300), fromSecondsSinceReferenceDate(8.0e9));
    EXPECT_EQ(fromSecondsSinceReferenceDate(-1e300), fromSecondsSinceReferenceDate(-8.0e9));
    EXPECT_EQ(fromSecondsSinceReferenceDate(std::nan("")), fromSecondsSinceReferenceDate(-8.0e9));
}

}  // namespace
}  // namespace orvel
