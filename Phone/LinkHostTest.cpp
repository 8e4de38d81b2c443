#include "Phone/LinkHost.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "Phone/PhoneProgramForTests.h"
#include "Phone/SharedLink.h"
#include "Tests/Support/BackgroundProcess.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

// The connection that is shared, as far as the host sees it.
class SharedForTests {
public:
    SharedForTests(const std::string& path, Bytes agentKey)
        : host(path, welcomeWith(std::move(agentKey)), [this](const Control& control) {
              const std::lock_guard hold(mutex);
              sent.push_back(control);
              changed.notify_all();
          }) {}

    // The next control for the agent.
    Control receive() {
        std::unique_lock hold(mutex);
        if (!changed.wait_for(hold, 20s, [&] { return !sent.empty(); })) {
            throw std::runtime_error("nothing is said to the agent");
        }
        const Control control = sent.front();
        sent.pop_front();
        return control;
    }
    template <class T>
    T receive() {
        const Control control = receive();
        if (!control.as<T>()) throw std::runtime_error("another control: " + control.toJson());
        return *control.as<T>();
    }
    void offer(AgentLink::Event::Case value) { host.offer({{}, std::move(value)}); }

private:
    static Welcome welcomeWith(Bytes agentKey) {
        Welcome welcome;
        welcome.macName = "Desk";
        welcome.agentKey = std::move(agentKey);
        return welcome;
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Control> sent;

public:
    LinkHost host;
};

struct LinkHostTest : PhoneProgramTest {
    LinkHostTest() { PhoneState(state()).remember({id, key, "Desk", "127.0.0.1", 1, {}}); }
    std::string path() const { return LinkHost::pathFor(state(), id); }

    const Bytes key = PrivateKey::generate().publicKey();
    const std::string id = Identity::fingerprint(key);
};

AgentLink::Event::Case data(std::uint32_t id, std::size_t length) {
    return FileFrame{id, FileFrame::Data{Bytes(length, 'x')}};
}

TEST_F(LinkHostTest, answersFindTheirWayBack) {
    SharedForTests agent(path(), key);
    ASSERT_EQ(agent.host.problem(), "");
    struct stat made {};
    ASSERT_EQ(stat(path().c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 0777, 0600u);

    const auto a = SharedLink::open(path()), b = SharedLink::open(path());
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->waitFor<Welcome>()->macName, "Desk");
    EXPECT_EQ(b->waitFor<Welcome>()->agentKey, key);

    // Both use the same numbers.
    a->send({Control::FetchFile{1, "a"}});
    const auto fetchA = agent.receive<Control::FetchFile>();
    b->send({Control::FetchFile{1, "b"}});
    const auto fetchB = agent.receive<Control::FetchFile>();
    EXPECT_EQ(fetchA.path + fetchB.path, "ab");
    EXPECT_NE(fetchA.id, fetchB.id);
    agent.offer(data(fetchB.id, 3));
    agent.offer(data(fetchA.id, 100'000));
    agent.offer(FileFrame{fetchB.id, FileFrame::End{"no"}});
    agent.offer(data(fetchB.id, 4));
    EXPECT_EQ(*a->waitFor<FileFrame>(), (FileFrame{1, FileFrame::Data{Bytes(100'000, 'x')}}));
    EXPECT_EQ(*b->waitFor<FileFrame>(), (FileFrame{1, FileFrame::Data{Bytes(3, 'x')}}));
    EXPECT_EQ(*b->waitFor<FileFrame>(), (FileFrame{1, FileFrame::End{"no"}}));

    a->send({Control::Ping{5}});
    const auto pingA = agent.receive<Control::Ping>();
    b->send({Control::Ping{5}});
    const auto pingB = agent.receive<Control::Ping>();
    agent.offer(Control{Control::Pong{pingB.value}});
    agent.offer(Control{Control::Pong{pingB.value}});
    agent.offer(Control{Control::Pong{pingA.value}});
    EXPECT_EQ(b->waitFor<Control::Pong>()->value, 5u);
    EXPECT_EQ(a->waitFor<Control::Pong>()->value, 5u);

    b->send({Control::ListDirectory{"b"}});
    agent.receive<Control::ListDirectory>();
    a->send({Control::ListDirectory{"a"}});
    agent.receive<Control::ListDirectory>();
    for (const char* listed : {"b", "a"})
        agent.offer(Control{DirectoryListing{listed, {}, {}, {}}});
    EXPECT_EQ(a->waitFor<DirectoryListing>()->path, "a");
    EXPECT_EQ(b->waitFor<DirectoryListing>()->path, "b");

    a->send({Control::Audio{false}});  // not for them to say
    a->send({Control::Text{"typed"}});
    EXPECT_EQ(agent.receive<Control::Text>().text, "typed");
    agent.offer(VideoFrame{});
    agent.offer(Control{Control::Clipboard{"copied"}});
    for (SharedLink* link : {a.get(), b.get()})
        EXPECT_EQ(link->next(10s)->as<Control::Clipboard>()->text, "copied");
}

TEST_F(LinkHostTest, aCommandThatGoesEndsItsDownloads) {
    SharedForTests agent(path(), key);
    auto gone = SharedLink::open(path());
    gone->send({Control::FetchFile{9, "a"}});
    const auto fetch = agent.receive<Control::FetchFile>();
    gone->send({Control::FetchFile{10, "b"}});
    const auto second = agent.receive<Control::FetchFile>();
    gone->send({Control::CancelFetch{10}});
    EXPECT_EQ(agent.receive<Control::CancelFetch>().id, second.id);
    agent.offer(FileFrame{second.id, FileFrame::End{"cancelled"}});
    EXPECT_EQ(gone->waitFor<FileFrame>()->id, 10u);
    gone.reset();
    EXPECT_EQ(agent.receive<Control::CancelFetch>().id, fetch.id);
    agent.offer(data(fetch.id, 10));  // nobody minds
    const auto other = SharedLink::open(path());
    EXPECT_TRUE(other->waitFor<Welcome>());
}

TEST_F(LinkHostTest, whoDoesNotTakeItsBytesIsSentAway) {
    SharedForTests agent(path(), key);
    const auto lazy = SharedLink::open(path());
    lazy->send({Control::FetchFile{1, "a"}});
    const auto fetch = agent.receive<Control::FetchFile>();
    for (int i = 0; i < 200; ++i)
        agent.offer(data(fetch.id, 65'536));
    EXPECT_EQ(agent.receive<Control::CancelFetch>().id, fetch.id);
}

TEST_F(LinkHostTest, nonsenseIsSentAway) {
    SharedForTests agent(path(), key);
    for (const std::string& nonsense :
         {std::string("GET / HTTP/1.0\r\n\r\n"), std::string("\x01\0\0\0\x02{}", 7),
          std::string("\x04\0\0\0\0", 5)}) {
        boost::asio::io_context context;
        boost::asio::local::stream_protocol::socket socket(context);
        socket.connect({path()});
        boost::asio::write(socket, boost::asio::buffer(nonsense));
        boost::system::error_code error;
        char sink[4096];
        while (!error)
            socket.read_some(boost::asio::buffer(sink), error);
        EXPECT_EQ(error, boost::asio::error::eof);
    }
}

TEST_F(LinkHostTest, theEndOfTheConnectionIsSaid) {
    std::unique_ptr<SharedLink> link;
    {
        SharedForTests agent(path(), key);
        link = SharedLink::open(path());
        EXPECT_TRUE(link->waitFor<Welcome>());
    }
    EXPECT_TRUE(link->waitFor<AgentLink::Closed>());
    EXPECT_THAT(link->closed()->describe(), HasSubstr("watch"));
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_EQ(SharedLink::open(path()), nullptr);
}

TEST_F(LinkHostTest, whatIsLeftOfAnotherIsReplacedAndNobodyElsesIsRemoved) {
    std::ofstream(path()) << "left";
    auto first = std::make_unique<SharedForTests>(path(), key);
    EXPECT_EQ(first->host.problem(), "");
    SharedForTests second(path(), key);
    first.reset();
    EXPECT_TRUE(SharedLink::open(path())) << "it is the second one's";

    const SharedForTests nowhere(state() + "/" + std::string(200, 'x'), key);
    EXPECT_NE(nowhere.host.problem(), "");
}

// Nobody can be reached at the computer's address: what works goes through the host.
TEST_F(LinkHostTest, commandsUseTheConnectionThatIsThere) {
    SharedForTests agent(path(), key);
    std::thread answers([&] {
        const auto fetch = agent.receive<Control::FetchFile>();
        agent.offer(FileFrame{fetch.id, FileFrame::Start{"a", 3}});
        agent.offer(data(fetch.id, 3));
        agent.offer(FileFrame{fetch.id, FileFrame::End{}});
        EXPECT_EQ(agent.receive<Control::Text>().text, "ş");
        agent.offer(Control{Control::Pong{agent.receive<Control::Ping>().value}});
    });
    EXPECT_EQ(run({"get", "a", "-o", folder / "a"}), 0) << remarked();
    EXPECT_EQ(fileText(folder / "a"), "xxx");
    EXPECT_EQ(run({"type", "ş"}), 0) << remarked();
    answers.join();
}

TEST_F(LinkHostTest, aHostOfAnotherComputerIsNotUsed) {
    const SharedForTests other(path(), Bytes(32, 8));
    EXPECT_EQ(run({"type", "secret"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("cannot be reached"));
}

}  // namespace

}  // namespace orvel::phone
