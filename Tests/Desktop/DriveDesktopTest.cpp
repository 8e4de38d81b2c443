// A phone drives the real program: real keys, windows, clipboard, files and sound.

#include <gmock/gmock.h>
#include <opus.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "Tests/Desktop/AgentDesktop.h"
#include "Tests/Support/SoundServer.h"
#include "Tests/Support/Tone.h"
#include "Tests/Support/XDesk.h"
#include "Tests/Support/XHands.h"

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace orvel {
namespace {

using phone::PhoneConnection;

class DriveDesktopTest : public AgentDesktop {
protected:
    void click(PhoneConnection& phone, double x, double y) {
        phone.send({Control::MoveTo{x, y}});
        phone.send({Control::Button{MouseButton::left, true, 1}});
        phone.send({Control::Button{MouseButton::left, false, 1}});
    }
    std::string clipboardText() const {
        BackgroundProcess reader({.command = {"xclip", "-o", "-selection", "clipboard"},
                                  .environment = {{"DISPLAY", server.display()}},
                                  .outputFile = folder / "clipboard"});
        reader.wait();
        return fileText(folder / "clipboard");
    }
};

TEST_F(DriveDesktopTest, nothingStaysPressedHoweverAPhoneOrTheAgentGoes) {
    XHands hands(server.display());
    startAgent();
    std::unique_ptr<PhoneConnection> phone, other;
    struct Way {
        const char* name;
        std::function<void()> end;
    };
    const Way ways[] = {
        {"the phone is killed", [&] { phone->abort(); }},
        {"another phone takes over", [&] { other = admitted(); }},
        {"SIGTERM", [&] { endAgent(); }},
        {"a crash and a restart",
         [&] {
             agent->signal(SIGKILL);
             agent->wait();
             EXPECT_NE(hands.down(), "") << "nothing to be cleaned up";
             startAgent();
         }},
    };
    for (const Way& way : ways) {
        SCOPED_TRACE(way.name);
        if (!agent) startAgent();
        phone = admitted();
        phone->send({Control::Button{MouseButton::left, true, 1}});
        phone->send({Control::Key{0, true, {Modifiers::shift | Modifiers::command}}});
        ASSERT_TRUE(eventually([&] { return hands.down() == "37 38 50 b1"; })) << hands.down();
        way.end();
        EXPECT_TRUE(eventually([&] { return hands.down().empty(); })) << hands.down();
        other.reset();
    }
}

TEST_F(DriveDesktopTest, textInAnyScriptArrivesInATerminalUnderATurkishLayout) {
    XHands(server.display()).setLayout("tr");
    const std::string typed = folder / "typed", ready = folder / "ready";
    BackgroundProcess terminal(
        {.command = {"xterm", "-u8", "-geometry", "80x24+0+0", "-e", "sh", "-c",
                     "touch '" + ready + "'; exec cat > '" + typed + "'"},
         .environment = {{"DISPLAY", server.display()}, {"LC_ALL", "C.UTF-8"}}});
    ASSERT_TRUE(eventually([&] { return std::ifstream(ready).good(); }));
    startAgent();
    const auto phone = admitted();
    click(*phone, 0.3, 0.3);
    const std::string text =
        "Şu ılık çöğüş 👍🏽 İĞÜ e\u0301 Ω€ {[]}@#\\| \"'`~\n";
    phone->send({Control::Text{text}});
    EXPECT_TRUE(eventually([&] { return fileText(typed) == text; })) << fileText(typed);
}

TEST_F(DriveDesktopTest, theClipboardIsSharedWithOtherPrograms) {
    startAgent();
    const auto phone = admitted();
    phone->send({Control::Clipboard{"telefondan 👍🏽"}});
    EXPECT_TRUE(agent->readUntil(R"({"clipboard":"telefondan 👍🏽"})"));
    EXPECT_TRUE(eventually([&] { return clipboardText() == "telefondan 👍🏽"; }));

    BackgroundProcess writer(
        {.command = {"xclip", "-i", "-selection", "clipboard", "-loops", "2", "-quiet"},
         .environment = {{"DISPLAY", server.display()}},
         .input = "buradan ş",
         .outputFile = folder / "writer"});
    const auto copied = phone->waitFor<Control::Clipboard>();
    ASSERT_TRUE(copied);
    EXPECT_EQ(copied->text, "buradan ş") << "and its own text was not sent back before";
}

TEST_F(DriveDesktopTest, foldersAreBrowsedAndFilesFetchedByTheNamesThatWereListed) {
    const std::string shared = folder / "shared";
    ASSERT_EQ(mkdir(shared.c_str(), 0700), 0);
    std::string content(3'000'000, '\0');
    std::uint32_t seed = 1;
    for (char& byte : content)
        byte = static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
    const auto write = [&](const std::string& name, const std::string& bytes) {
        std::ofstream(shared + "/" + name, std::ios::binary) << bytes;
    };
    write("dosya 10", "");
    write("dosya 9", content);
    write("bad\xFFname", "odd");
    write(".hidden", "x");
    ASSERT_EQ(mkdir((shared + "/Çalışma").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((shared + "/Program.app").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo((shared + "/pipe").c_str(), 0600), 0);
    startAgent();
    const auto phone = admitted();
    phone->send({Control::ListDirectory{shared}});
    const auto listing = phone->waitFor<DirectoryListing>();
    ASSERT_TRUE(listing);
    std::vector<std::string> names;
    std::string oddName;
    for (const FileEntry& entry : listing->entries) {
        if (entry.size == 3) oddName = entry.name;
        names.push_back(entry.size == 3 ? "the odd one" : entry.name);
        EXPECT_EQ(entry.isDirectory, entry.name == "Çalışma") << entry.name;
    }
    EXPECT_THAT(
        names, ElementsAre("Çalışma", "the odd one", "dosya 9", "dosya 10", "pipe", "Program.app"));

    // All at once.
    std::map<std::uint32_t, std::string> fetched, ends;
    const std::vector<std::string> wanted = {"dosya 9", "dosya 10", oddName, "pipe", "Çalışma"};
    for (std::uint32_t id = 0; id < wanted.size(); ++id)
        phone->send({Control::FetchFile{id, shared + "/" + wanted[id]}});
    while (ends.size() < wanted.size()) {
        const auto frame = phone->waitFor<FileFrame>();
        ASSERT_TRUE(frame);
        if (const auto* data = std::get_if<FileFrame::Data>(&frame->step)) {
            fetched[frame->id].append(data->bytes.begin(), data->bytes.end());
        } else if (const auto* end = std::get_if<FileFrame::End>(&frame->step)) {
            ends[frame->id] = end->error.value_or("complete");
        }
    }
    EXPECT_TRUE(fetched[0] == content);
    EXPECT_EQ(fetched[2], "odd");
    EXPECT_THAT(ends, ElementsAre(std::pair(0u, "complete"), std::pair(1u, "complete"),
                                  std::pair(2u, "complete"),
                                  std::pair(3u,
                                            "Bu konuma erişim izni yok. Mac'te Orvel Agent'a dosya "
                                            "erişimi izni ver."),
                                  std::pair(4u, "Klasörler henüz indirilemiyor.")));
}

TEST_F(DriveDesktopTest, whatTheComputerPlaysIsHeardUntilThePhoneSwitchesItOff) {
    SoundServer sound;
    sound.addOutput("speakers");
    sound.playTone("speakers", 1'000);
    startAgent({{"PULSE_SERVER", sound.address()}});
    const auto phone = admitted();
    int error = 0;
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder*)> decoder(
        opus_decoder_create(48'000, 2, &error), opus_decoder_destroy);
    ASSERT_EQ(error, OPUS_OK);
    // The first second may still be without the tone.
    std::vector<double> heard;
    for (std::uint32_t number = 1; number <= 100; ++number) {
        const auto packet = phone->waitFor<AudioPacket>();
        ASSERT_TRUE(packet);
        EXPECT_EQ(packet->sequence, number);
        float samples[2 * 960];
        ASSERT_EQ(opus_decode_float(decoder.get(), packet->opus.data(),
                                    static_cast<opus_int32>(packet->opus.size()), samples, 960, 0),
                  960);
        for (int i = 0; i < 960 && number > 50; ++i)
            heard.push_back(samples[2 * i]);
    }
    EXPECT_NEAR(std::abs(toneIn(heard, 1'000)), 0.5, 0.05);

    phone->send({Control::Audio{false}});
    EXPECT_TRUE(eventually([&] { return sound.listeners() == 0; }));
    phone->send({Control::Audio{true}});
    EXPECT_TRUE(eventually([&] { return sound.listeners() == 1; }));
}

}  // namespace
}  // namespace orvel
