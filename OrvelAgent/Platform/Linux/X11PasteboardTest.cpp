#include "OrvelAgent/Platform/Linux/X11Pasteboard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <vector>

#include "OrvelAgent/Desk/ClipboardWatcher.h"
#include "OrvelAgent/Platform/Linux/MainQueueForTests.h"
#include "OrvelAgent/Platform/Linux/SelectionOwner.h"
#include "OrvelAgent/Platform/Linux/XProgramForTests.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/XServer.h"

using testing::ElementsAre;

namespace orvel {
namespace {

constexpr std::size_t anySize = 100'000'000;

std::string repeat(const std::string& text, std::size_t times) {
    std::string result;
    while (times-- > 0)
        result += text;
    return result;
}

// Each part of it differs from the others.
std::string longText(std::size_t bytes) {
    std::string text;
    for (int line = 0; text.size() < bytes; ++line)
        text += "satır " + std::to_string(line) + ": şu ılık çöğüş 👍🏽\n";
    return text;
}

class X11PasteboardTest : public testing::Test {
protected:
    X11PasteboardTest() { open(); }
    void open() {
        pasteboard = std::make_unique<X11Pasteboard>(main.queue, server.display());
        // Answered by a pasteboard that has found its server.
        read();
    }

    std::int64_t count() {
        return main.run([this] { return pasteboard->changeCount(); });
    }
    bool countBecomes(std::int64_t wanted) {
        return eventually([&] { return count() == wanted; });
    }
    using Text = std::optional<std::string>;
    std::future<Text> beginReading(std::size_t maxBytes = anySize) {
        auto result = std::make_shared<std::promise<Text>>();
        main.run([&] {
            pasteboard->readString(maxBytes,
                                   [result](Text text) { result->set_value(std::move(text)); });
        });
        return result->get_future();
    }
    Text read(std::size_t maxBytes = anySize) { return beginReading(maxBytes).get(); }
    std::int64_t write(const std::string& text) {
        return main.run([&] { return pasteboard->setString(text); });
    }

    // What `xclip` with these arguments does until it ends, or the test does.
    std::unique_ptr<BackgroundProcess> xclip(std::vector<std::string> arguments,
                                             const std::string& output = "out") {
        std::vector<std::string> command{"xclip", "-selection", "clipboard"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<BackgroundProcess>(
            BackgroundProcess::Options{.command = command,
                                       .environment = {{"DISPLAY", server.display()}},
                                       .outputFile = folder / output});
    }
    // Another program copies, and is there for as long as the result.
    std::unique_ptr<BackgroundProcess> copy(const std::string& text,
                                            std::vector<std::string> arguments = {}) {
        const std::string file = folder / ("in" + std::to_string(++files));
        std::ofstream(file, std::ios::binary) << text;
        // Quiet, it stays in the foreground.
        arguments.insert(arguments.end(), {"-quiet", "-in", file});
        const auto before = count();
        auto program = xclip(arguments, "messages");
        EXPECT_TRUE(countBecomes(before + 1));
        return program;
    }
    // What another program pastes.
    std::string paste(const std::vector<std::string>& arguments = {}) {
        std::filesystem::remove(folder / "out");
        auto all = arguments;
        all.push_back("-out");
        xclip(all)->wait();
        return fileText(folder / "out");
    }

    XServer server;
    TemporaryFolder folder;
    int files = 0;
    MainQueue main;
    std::unique_ptr<X11Pasteboard> pasteboard;
};

TEST_F(X11PasteboardTest, readsWhatAnotherProgramCopied) {
    EXPECT_EQ(read(), std::nullopt);
    const struct {
        const char* name;
        std::string copied;
        std::vector<std::string> arguments;
        std::optional<std::string> text;
    } rows[] = {
        {"text", "ılık çöğüş 👍🏽\n", {}, "ılık çöğüş 👍🏽\n"},
        {"1,000,000 characters", repeat("ş", 1'000'000), {}, repeat("ş", 1'000'000)},
        {"in pieces", longText(5'000'000), {}, longText(5'000'000)},
        {"no characters", "a\xFF", {}, "a�"},
        {"Latin-1", "\xFE", {"-noutf8"}, "þ"},
        {"a picture", "\x89PNG", {"-target", "image/png"}, std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto program = copy(row.copied, row.arguments);
        EXPECT_TRUE(read() == row.text);
    }
}

TEST_F(X11PasteboardTest, countsEachCopyAndNoneOfItsOwn) {
    EXPECT_EQ(count(), 0);
    const auto first = copy("same");
    const auto second = copy("same");
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(write("own"), 2);
    EXPECT_EQ(read(), "own");
    EXPECT_EQ(paste(), "own");
    EXPECT_EQ(count(), 2);
    auto third = copy("other");
    EXPECT_EQ(count(), 3);
    EXPECT_EQ(read(), "other");
    third.reset();  // the text goes with its program
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(count(), 3);
}

TEST_F(X11PasteboardTest, fetchesNothingLongerThanWanted) {
    const auto program = copy(std::string(100, 'x'));
    EXPECT_EQ(read(99), std::nullopt);
    EXPECT_EQ(read(100), std::string(100, 'x'));
    const auto longer = copy(longText(5'000'000));
    EXPECT_EQ(read(4'900'000), std::nullopt);
    EXPECT_TRUE(read() == longText(5'000'000));
    write("own");
    EXPECT_EQ(read(2), std::nullopt);
}

TEST_F(X11PasteboardTest, severalMayReadAtOnce) {
    const auto program = copy(longText(3'000'000));
    auto first = beginReading(), second = beginReading(10), third = beginReading();
    EXPECT_TRUE(first.get() == longText(3'000'000));
    EXPECT_EQ(second.get(), std::nullopt);
    EXPECT_TRUE(third.get() == longText(3'000'000));
}

TEST_F(X11PasteboardTest, anOwnerThatGoesOrHangsIsNotWaitedFor) {
    auto owner = std::make_unique<XProgram>(server.display());
    owner->own(owner->atoms.clipboard);
    ASSERT_TRUE(countBecomes(1));
    auto reading = beginReading();
    auto request = owner->awaitRequest();
    EXPECT_EQ(request.target, owner->atoms.targets);
    owner->setValues(request.requestor, request.property, XCB_ATOM_ATOM, {owner->atoms.utf8String});
    owner->answer(request);
    request = owner->awaitRequest();
    EXPECT_EQ(request.target, owner->atoms.utf8String);
    owner->watchProperties(request.requestor);
    owner->setValues(request.requestor, request.property, owner->atoms.incr, {3});
    owner->answer(request);
    owner->awaitTaken(request.requestor, request.property);
    owner->set(request.requestor, request.property, owner->atoms.utf8String, "ab");
    owner->awaitTaken(request.requestor, request.property);
    owner.reset();  // in the middle
    EXPECT_EQ(reading.get(), std::nullopt);

    const auto program = copy("hung");
    program->signal(SIGSTOP);
    EXPECT_EQ(read(), std::nullopt);
    program->signal(SIGCONT);
    EXPECT_EQ(read(), "hung");
    EXPECT_TRUE(program->isRunning());  // its late answer met a window
}

TEST_F(X11PasteboardTest, anOwnerMayKnowNoTargetsOrChangeItsMind) {
    XProgram owner(server.display());
    owner.own(owner.atoms.clipboard);
    auto reading = beginReading();
    owner.answer(owner.awaitRequest(), false);  // TARGETS
    owner.answer(owner.awaitRequest(), false);  // UTF8_STRING
    auto request = owner.awaitRequest();
    EXPECT_EQ(request.target, xcb_atom_t{XCB_ATOM_STRING});
    owner.set(request.requestor, request.property, XCB_ATOM_STRING, "\xE7");
    owner.answer(request);
    EXPECT_EQ(reading.get(), "ç");

    reading = beginReading();
    request = owner.awaitRequest();
    owner.set(request.requestor, request.property, XCB_ATOM_ATOM, "no atoms");
    owner.answer(request);
    EXPECT_EQ(reading.get(), std::nullopt);

    reading = beginReading();
    request = owner.awaitRequest();
    owner.setValues(request.requestor, request.property, XCB_ATOM_ATOM,
                    {owner.atoms.utf8String, owner.atoms.text});
    owner.answer(request);
    owner.answer(owner.awaitRequest(), false);  // UTF8_STRING after all not
    request = owner.awaitRequest();
    EXPECT_EQ(request.target, owner.atoms.text);
    owner.set(request.requestor, request.property, owner.atoms.compoundText, "\xE7");
    owner.answer(request);
    EXPECT_EQ(reading.get(), "ç");
}

TEST_F(X11PasteboardTest, givesItsTextToOtherPrograms) {
    for (const auto& text : {std::string("ılık çöğüş 👍🏽\n"), std::string(),
                             repeat("ş", 1'000'000), longText(5'000'000)}) {
        write(text);
        read();
        EXPECT_TRUE(paste() == text);
    }
    write("çş");
    EXPECT_EQ(paste({"-target", "text/plain;charset=utf-8"}), "çş");
    EXPECT_EQ(paste({"-target", "text/plain"}), "çş");
    EXPECT_EQ(paste({"-target", "TEXT"}), "çş");
    EXPECT_EQ(paste({"-target", "STRING"}), "\xE7?");
    EXPECT_EQ(paste({"-target", "image/png"}), "Error: target image/png not available\n");
    EXPECT_EQ(paste({"-target", "TARGETS"}),
              "TARGETS\nMULTIPLE\nTIMESTAMP\nSAVE_TARGETS\nUTF8_STRING\n"
              "text/plain;charset=utf-8\nTEXT\ntext/plain\n");
    write("ç");
    EXPECT_THAT(paste({"-target", "TARGETS"}), testing::EndsWith("text/plain\nSTRING\n"));
}

TEST_F(X11PasteboardTest, answersAsTheConventionsWantIt) {
    write("own");
    read();
    XProgram reader(server.display());
    const auto& atoms = reader.atoms;
    const auto since = reader.fetch(atoms.timestamp);
    ASSERT_TRUE(since);
    EXPECT_EQ(since->type, xcb_atom_t{XCB_ATOM_INTEGER});
    const auto time = since->values().at(0);
    EXPECT_NE(time, xcb_timestamp_t{XCB_CURRENT_TIME});
    EXPECT_EQ(reader.ask(atoms.utf8String, time - 1), xcb_atom_t{XCB_NONE});
    EXPECT_EQ(reader.fetch(atoms.utf8String, time)->bytes, "own");

    const auto first = reader.atom("FIRST"), second = reader.atom("SECOND"),
               third = reader.atom("THIRD");
    reader.setValues(reader.window.id(), atoms.transfer, atoms.atomPair,
                     {atoms.text, first, reader.atom("image/png"), second, atoms.timestamp, third});
    const auto pairs = reader.fetch(atoms.multiple);
    ASSERT_TRUE(pairs);
    EXPECT_THAT(pairs->values(), ElementsAre(atoms.text, first, reader.atom("image/png"), XCB_NONE,
                                             atoms.timestamp, third));
    EXPECT_EQ(reader.get(reader.window.id(), first).bytes, "own");
    EXPECT_EQ(reader.get(reader.window.id(), third).values(), since->values());
    // What is no list of pairs.
    reader.set(reader.window.id(), atoms.transfer, atoms.atomPair, "nonsense");
    EXPECT_EQ(reader.ask(atoms.multiple), xcb_atom_t{XCB_NONE});
}

TEST_F(X11PasteboardTest, requestorsThatTakeNothingHoldUpNobody) {
    const auto text = longText(3'000'000);
    write(text);
    read();
    auto idle = std::make_unique<XProgram>(server.display());
    std::vector<HelperWindow> windows;
    for (std::size_t i = 0; i <= SelectionOwner::maxTransfers; ++i) {
        windows.emplace_back(idle->x11);
        xcb_convert_selection(idle->x11.get(), windows.back().id(), idle->atoms.clipboard,
                              idle->atoms.utf8String, idle->atoms.transfer, XCB_CURRENT_TIME);
    }
    std::vector<bool> given;
    while (given.size() < windows.size()) {
        const auto event = idle->await(XCB_SELECTION_NOTIFY);
        const auto& notice = reinterpret_cast<const xcb_selection_notify_event_t&>(*event);
        given.push_back(notice.property != XCB_NONE);
    }
    EXPECT_EQ(std::count(given.begin(), given.end(), true), SelectionOwner::maxTransfers);
    EXPECT_FALSE(given.back());
    // The one in the middle of its text gets all of that, whatever is copied meanwhile.
    const auto window = windows.front().id();
    idle->get(window, idle->atoms.transfer);
    write("short");
    EXPECT_EQ(paste(), "short");
    std::string received;
    for (;;) {
        idle->await([&](const auto& event) {
            const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
            return eventType(event) == XCB_PROPERTY_NOTIFY && change.window == window &&
                   change.atom == idle->atoms.transfer && change.state == XCB_PROPERTY_NEW_VALUE;
        });
        const auto piece = idle->get(window, idle->atoms.transfer).bytes;
        if (piece.empty()) break;
        received += piece;
    }
    EXPECT_TRUE(received == text);
    windows.clear();
    idle.reset();
    write(text);
    EXPECT_TRUE(paste() == text);
}

TEST_F(X11PasteboardTest, leavesItsTextToAClipboardManager) {
    XProgram manager(server.display());
    manager.own(manager.atoms.clipboardManager);
    write("kept");
    read();
    auto ending = std::async(std::launch::async, [this] { pasteboard.reset(); });
    auto save = manager.awaitRequest();
    EXPECT_EQ(save.target, manager.atoms.saveTargets);
    EXPECT_EQ(manager.fetch(manager.atoms.utf8String)->bytes, "kept");
    manager.answer(save);
    EXPECT_EQ(ending.wait_for(XProgram::limit), std::future_status::ready);

    // One that does not answer, and none.
    open();
    write("kept");
    pasteboard.reset();
    open();
    pasteboard.reset();
}

TEST_F(X11PasteboardTest, livesWithoutAServerAndFindsANewOne) {
    const auto program = copy("lost");
    write("own");
    EXPECT_EQ(read(), "own");
    server.kill();
    EXPECT_TRUE(eventually([&] { return read() == std::nullopt; }));
    write("waits");
    EXPECT_EQ(read(), "waits");
    EXPECT_EQ(read(1), std::nullopt);
    server.restart();
    EXPECT_TRUE(eventually([&] { return paste() == "waits"; }));
    const auto next = copy("next");
    EXPECT_EQ(read(), "next");

    const std::int64_t before = count();
    pasteboard = std::make_unique<X11Pasteboard>(main.queue, "no-display");
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(before, 2);
}

// With the watcher that uses it: what the phone copied does not come back, what is copied here
// does.
TEST_F(X11PasteboardTest, servesTheWatcher) {
    std::vector<std::string> copies;
    std::shared_ptr<ClipboardWatcher> watcher;
    main.run([&] {
        watcher = std::make_shared<ClipboardWatcher>(main.queue, *pasteboard);
        watcher->onCopy = [&](std::string text) { copies.push_back(std::move(text)); };
        watcher->start();
    });
    const auto copied = [&] { return main.run([&] { return copies; }); };
    // A copy that the watcher has not seen yet is lost to the phone's.
    const auto lost = copy("lost");
    main.run([&] { watcher->setText("of the phone"); });
    EXPECT_EQ(paste(), "of the phone");
    for (std::size_t times = 1; times <= 2; ++times) {
        const auto program = copy("twice");
        EXPECT_TRUE(eventually([&] { return copied().size() == times; }));
    }
    main.run([&] { watcher->setText("again"); });
    const auto last = copy("last");
    EXPECT_TRUE(eventually([&] { return copied().size() == 3; }));
    EXPECT_THAT(copied(), ElementsAre("twice", "twice", "last"));
    main.run([&] { watcher.reset(); });
}

}  // namespace
}  // namespace orvel
