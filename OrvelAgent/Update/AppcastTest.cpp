#include "OrvelAgent/Update/Appcast.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

const std::string head =
    R"(<?xml version="1.0" encoding="utf-8"?>)"
    R"(<rss version="2.0" xmlns:s="http://www.andymatuschak.org/xml-namespaces/sparkle")"
    R"( xmlns:o="urn:orvel:appcast" xmlns:f="urn:foreign"><channel><title>Orvel</title>)";
const std::string tail = "</channel></rss>";
const std::string signature(86, 'A');

std::string enclosure(const std::string& more = "", const std::string& url = "https://h/p.deb") {
    return "<enclosure url=\"" + url + "\" length=\"1000\" type=\"t/deb\" s:os=\"linux\" " +
           "s:edSignature=\"" + signature + "==\" " + more + "/>";
}
std::string item(const std::string& content) {
    return "<item>" + content + "</item>";
}
std::optional<std::vector<AppcastItem>> parse(const std::string& feed) {
    return Appcast::parse(bytesOf(feed));
}

TEST(Appcast, readsWhatConcernsAnUpdate) {
    const auto items = parse(head +
                             item("<title>New</title><pubDate>Sat, 21 Nov 2026</pubDate>"
                                  "<description><![CDATA[<b>Faster</b>]]></description>"
                                  "<s:version> 2.0-1 </s:version>"
                                  "<s:shortVersionString>2.0 “İki”</s:shortVersionString>"
                                  "<s:minimumSystemVersion>5.10</s:minimumSystemVersion>"
                                  "<link>https://h/</link>" +
                                  enclosure("o:architecture=\"amd64\"")) +
                             tail);
    ASSERT_TRUE(items && items->size() == 1);
    EXPECT_EQ(items->front(), (AppcastItem{{"2.0-1", "2.0 “İki”", "<b>Faster</b>", 1000},
                                           "linux",
                                           "t/deb",
                                           "amd64",
                                           "5.10",
                                           Url::parse("https://h/p.deb").value(),
                                           Bytes(64, 0)}));
    const auto older =
        parse(head + item(enclosure("s:version=\"3\" s:shortVersionString=\"3.0\"")) + tail);
    ASSERT_TRUE(older && older->size() == 1);
    EXPECT_EQ(older->front().update.displayVersion, "3.0");
}

TEST(Appcast, isAWholeFeedOrNothing) {
    const std::string good = head + item("<s:version>2</s:version>" + enclosure()) + tail;
    ASSERT_TRUE(parse(good));
    for (std::size_t cut = 0; cut < good.size(); cut += 7)
        EXPECT_FALSE(parse(good.substr(0, cut))) << cut;
    const std::string rows[] = {
        "not XML",
        "{\"version\": 2}",
        "<html><body>404</body></html>",
        "<rss version=\"2.0\"/>",
        good + "<rss/>",
        "<!DOCTYPE rss><rss><channel/></rss>",
        "<!DOCTYPE rss [<!ENTITY a \"aaaa\">]><rss><channel>&a;</channel></rss>",
        "<rss><channel>&unknown;</channel></rss>",
        "<rss><channel><s:version/></channel></rss>",
        std::string("<rss><channel>\0</channel></rss>", 31),
        good.substr(0, good.size() - 6) + std::string(Appcast::maxSize, ' ') + "</rss>",
    };
    for (const auto& row : rows)
        EXPECT_FALSE(parse(row)) << row.substr(0, 100);
    EXPECT_TRUE(parse("<rss><channel/></rss>")->empty());
}

TEST(Appcast, leavesOutWhatMakesNoSense) {
    const std::string version = "<s:version>2</s:version>";
    const auto changed = [](const std::string& from, const std::string& to) {
        std::string text = enclosure();
        return text.replace(text.find(from), from.size(), to);
    };
    const std::pair<const char*, std::string> rows[] = {
        {"no version", enclosure()},
        {"no number in it", "<s:version>new</s:version>" + enclosure()},
        {"a path in it", "<s:version>../2</s:version>" + enclosure()},
        {"a very long one", "<s:version>" + std::string(65, '1') + "</s:version>" + enclosure()},
        {"a foreign element", "<f:version>2</f:version>" + enclosure()},
        {"an element without a namespace", "<version>2</version>" + enclosure()},
        {"a channel", version + "<s:channel>beta</s:channel>" + enclosure()},
        {"no package", version},
        {"plain http", version + enclosure("", "http://h/p.deb")},
        {"a file", version + enclosure("", "file:///etc/passwd")},
        {"a relative address", version + enclosure("", "p.deb")},
        {"no host", version + enclosure("", "https:///p.deb")},
        {"no length", version + changed("length=\"1000\"", "")},
        {"a negative one", version + changed("1000", "-1")},
        {"nothing", version + changed("1000", "0")},
        {"too long", version + changed("1000", "99999999999999999999")},
        {"longer than allowed", version + changed("1000", "209715201")},
        {"a foreign enclosure", version + "<f:enclosure url=\"https://h/p\" length=\"1\"/>"},
    };
    for (const auto& [name, content] : rows) {
        const auto items = parse(head + item(content) + item(version + enclosure()) + tail);
        ASSERT_TRUE(items) << name;
        EXPECT_EQ(items->size(), 1u) << name;
    }
}

TEST(Appcast, makesDoWithoutWhatIsOnlyForPeople) {
    const std::pair<const char*, std::string> shortVersions[] = {
        {"2.0", "2.0"},
        {"", "2"},
        {"two\nlines", "2"},
        {"1.0\xE2\x80\xAE"
         "0.2",
         "2"},  // right-to-left override
        {"123456789012345678901234567890123456789012", "2"},
    };
    for (const auto& [text, shown] : shortVersions) {
        const auto items = parse(head +
                                 item("<s:version>2</s:version><s:shortVersionString>" +
                                      std::string(text) + "</s:shortVersionString>" + enclosure()) +
                                 tail);
        ASSERT_TRUE(items && items->size() == 1) << text;
        EXPECT_EQ(items->front().update.displayVersion, shown);
    }
    for (const auto* bad : {"", "A", "AAAA", "no base64"}) {
        std::string text = enclosure();
        text.replace(text.find(signature), signature.size() + 2, bad);
        const auto items = parse(head + item("<s:version>2</s:version>" + text) + tail);
        ASSERT_TRUE(items && items->size() == 1) << bad;
        EXPECT_TRUE(items->front().signature.empty()) << bad;
    }
}

TEST(Appcast, choosesTheNewestForThisMachine) {
    const Appcast::Target here{"linux", "t/deb", "amd64", "6.1.0-18-amd64"};
    const auto of = [](const std::string& version, const std::string& more = "",
                       const std::string& system = "linux") {
        std::string text = item("<s:version>" + version + "</s:version>" + enclosure(more));
        text.replace(text.find("s:os=\"linux\""), 12, "s:os=\"" + system + "\"");
        return text;
    };
    const std::string needs = "<s:minimumSystemVersion>";
    const std::pair<std::string, std::string> rows[] = {
        {"", "none"},
        {of("1.9") + of("1.10") + of("1.2"), "1.10"},
        {of("1") + of("2", "o:architecture=\"arm64\""), "1"},
        {of("1") + of("2", "o:architecture=\"amd64\""), "2"},
        {of("1") + of("2", "", "macos") + of("3", "", ""), "1"},
        {of("2", "", "windows"), "none"},
        {of("1") + item("<s:version>2</s:version>" + needs + "6.2</s:minimumSystemVersion>" +
                        enclosure()),
         "1"},
        {of("1") + item("<s:version>2</s:version>" + needs + "6.1</s:minimumSystemVersion>" +
                        enclosure()),
         "2"},
    };
    for (const auto& [content, expected] : rows) {
        const auto items = parse(head + content + tail);
        ASSERT_TRUE(items);
        const auto* newest = Appcast::newest(*items, here);
        EXPECT_EQ(newest ? newest->update.version : "none", expected) << content;
    }
}

}  // namespace
}  // namespace orvel
