// orvel-relay: a relay of one's own.

#include <CLI/CLI.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "OrvelKit/Base/QueueIo.h"
#include "Relay/RelayServer.h"

namespace {

int serve(const orvel::RelayServer::Options& options) {
    std::signal(SIGPIPE, SIG_IGN);
    orvel::SerialQueue queue("main", orvel::SerialQueue::Kind::callersThread);
    boost::asio::signal_set signals(orvel::ioContext(queue), SIGINT, SIGTERM);
    std::unique_ptr<orvel::RelayServer> server;
    orvel::Timer closing;
    int status = 0;
    queue.post([&] {
        try {
            server = std::make_unique<orvel::RelayServer>(queue, options);
            std::printf("{\"listening\":{\"port\":%d}}\n", server->port());
            std::fflush(stdout);
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "orvel: %s\n", error.what());
            status = 1;
            queue.stop();
        }
    });
    signals.async_wait([&](auto error, int) {
        if (error) return;
        server.reset();  // says goodbye, which takes a moment
        closing = queue.after(std::chrono::milliseconds(200), [&] { queue.stop(); });
    });
    queue.run();
    return status;
}

}  // namespace

int main(int count, char** arguments) {
    orvel::RelayServer::Options options;
    options.port = 47880;
    std::string secretFile;
    CLI::App app("A relay for one household: realtime topics, anonymous accounts, ICE servers.",
                 "orvel-relay");
    app.set_version_flag("--version", "orvel-relay " ORVEL_VERSION);
    app.add_option("--bind", options.address, "Listen at this address only (0.0.0.0 or :: for all)")
        ->capture_default_str();
    app.add_option("--port", options.port, "Port; 0 for a free one")->capture_default_str();
    app.add_option("--key", options.key, "The key that clients show")->capture_default_str();
    app.add_option("--turn", options.ice.turnUrls,
                   "Address of a TURN server (turn:HOST:PORT), may be given several times");
    app.add_option("--turn-secret-file", secretFile,
                   "File with the secret shared with that server (coturn: use-auth-secret)")
        ->check(CLI::ExistingFile);
    int life = 3600;
    app.add_option("--token-life", life, "Seconds until an account's token ends")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    try {
        app.parse(count, arguments);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::CallForVersion& version) {
        std::printf("%s\n", version.what());
        return 0;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "orvel: %s\n%s", error.what(), app.help().c_str());
        return 2;
    }
    options.accounts.tokenLife = std::chrono::seconds(life);
    if (!secretFile.empty()) std::getline(std::ifstream(secretFile), options.ice.turnSecret);
    return serve(options);
}
