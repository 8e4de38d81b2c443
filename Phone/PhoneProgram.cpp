#include "Phone/PhoneProgram.h"

#include <algorithm>
#include <boost/asio/ip/host_name.hpp>

#include "OrvelKit/Relay/Url.h"
#include "Phone/AgentLink.h"
#include "Phone/Commands/Command.h"
#include "Phone/PhoneState.h"

namespace orvel::phone {

namespace {

std::string ownName() {
    boost::system::error_code error;
    std::string name = boost::asio::ip::host_name(error);
    return error || name.empty() ? "orvel-phone" : name;
}

int usage(const CLI::App& app, const CLI::ParseError& error, Console& console) {
    const auto named = app.get_subcommands();
    const CLI::App& meant = named.empty() ? app : *named.front();
    const std::string text = meant.help(named.empty() ? "" : app.get_name());
    if (error.get_exit_code() == 0) {
        console.say(text);
        return 0;
    }
    console.remark(error.what());
    console.remark(text);
    return 2;
}

}  // namespace

int PhoneProgram::run(std::vector<std::string> arguments, Console& console,
                      const AgentChoice::Discover& discover) {
    Settings settings;
    settings.stateFolder = PhoneState::defaultFolder();
    settings.phoneName = ownName();
    settings.discover = discover;
    Command chosen;

    CLI::App app("The reference phone of Orvel Agent.", "orvel-phone");
    app.fallthrough();
    app.require_subcommand(1);
    app.set_version_flag("--version", "orvel-phone " ORVEL_VERSION);
    app.add_option("--state-dir", settings.stateFolder,
                   "Folder of the phone's key and the computers that it knows");
    auto* host = app.add_option("--host", settings.wish.host, "The computer's address or name");
    app.add_option("--port", settings.wish.port, "Its port (47800)")
        ->check(CLI::Range(1, 65535))
        ->needs(host);
    app.add_option("--agent", settings.wish.agent, "The computer by its name or device ID");
    app.add_option("--name", settings.phoneName, "What this phone calls itself");
    app.add_flag("--json", settings.json, "Results as JSON, one object a line");
    InternetWish wish;
    bool overInternet = false;
    auto* internet =
        app.add_flag("--internet", overInternet,
                     "Reach the computer, a paired one, over the internet, through a relay");
    internet->excludes(host);
    app.add_option("--relay", wish.relay,
                   "The relay's address, http or ws (as in ORVEL_PROJECT_URL)")
        ->needs(internet)
        ->check([](const std::string& text) {
            const auto url = Url::parse(text);
            return url && !url->host().empty() ? std::string() : text + " is no address";
        });
    app.add_option("--relay-key", wish.relayKey,
                   "Its key (as in ORVEL_PROJECT_KEY; \"local\" beside --relay)")
        ->needs(internet);
    app.add_flag("--unlock", wish.unlocks, "A computer in standby is unlocked for the session")
        ->needs(internet);
    app.add_flag("--relay-only", wish.relayOnly,
                 "Screen, sound and files go through a TURN server of the relay's alone")
        ->needs(internet);
    addDiscover(app, chosen);
    addPair(app, chosen);
    addWatch(app, chosen);
    addShot(app, chosen);
    addDisplays(app, chosen);
    addMove(app, chosen);
    addClick(app, chosen);
    addDrag(app, chosen);
    addScroll(app, chosen);
    addKey(app, chosen);
    addType(app, chosen);
    addClip(app, chosen);
    addList(app, chosen);
    addGet(app, chosen);
    addPing(app, chosen);

    try {
        std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
        app.parse(std::move(arguments));
        for (const char* local : {"pair", "discover"}) {
            if (overInternet && app.got_subcommand(local)) {
                throw CLI::ValidationError(local, "works on the local network only");
            }
        }
    } catch (const CLI::CallForVersion& version) {
        console.say(version.what());
        return 0;
    } catch (const CLI::ParseError& error) {
        return usage(app, error, console);
    }
    try {
        if (overInternet) settings.internet = wish;
        settings.wish.forPairing = app.got_subcommand("pair");
        CommandContext context{settings, console};
        chosen(context);
        return 0;
    } catch (const CommandError& error) {
        console.remark(error.what());
    } catch (const PhoneState::Error& error) {
        console.remark(error.what());
    } catch (const AgentLink::TooLong&) {
        console.remark("That is too long to be sent at once.");
    }
    return 1;
}

}  // namespace orvel::phone
