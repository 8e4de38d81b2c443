#include <algorithm>
#include <memory>

#include "OrvelKit/Base/Json.h"
#include "Phone/Commands/AgentSession.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration admissionPatience = 190s;  // the computer itself gives up after 180

struct PairOptions {
    std::optional<std::string> code;
    bool replace = false;
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// "123 456" is six digits, too. nullopt: it is not.
std::optional<std::string> sixDigits(std::string text) {
    std::erase_if(text, [](char c) { return c == ' ' || c == '-' || c == '\t' || c == '\r'; });
    const bool good = text.size() == 6 && std::all_of(text.begin(), text.end(), isDigit);
    return good ? std::optional(std::move(text)) : std::nullopt;
}

std::string askForDigits(CommandContext& context, AgentSession& session) {
    Console& console = context.console;
    console.remark(
        "Type the six digits that " + session.name() +
        " shows. (None there? Then it knows this phone already: remove it there first.)");
    for (;;) {
        const auto line = console.readLine([&] { return session.phone().closed().has_value(); });
        if (!line && session.phone().closed()) throw session.endedError();
        if (!line) throw CommandError("No digits were typed.");
        if (auto digits = sixDigits(*line)) return *digits;
        console.remark("These are not six digits. Once more:");
    }
}

void report(CommandContext& context, AgentSession& session, const char* how) {
    if (!context.settings.json) {
        return context.console.say(std::string(how) + " " + session.name() + ".");
    }
    JsonWriter json;
    json.beginObject();
    json.key("paired");
    json.string(session.name());
    json.key("id");
    json.string(session.phone().agentID());
    json.endObject();
    context.console.say(json.take());
}

// A computer that knows this phone shows no digits. Whether it still does, a hello tells.
bool isStillPaired(AgentSession& session) {
    if (!session.known()) return false;
    try {
        session.admit(1920, admissionPatience);
        return true;
    } catch (const RejectedError& error) {
        if (error.reason != Rejection::pinRequired) throw;
        return false;
    }
}

void pair(CommandContext& context, const PairOptions& options) {
    AgentSession session = AgentSession::open(context, options.replace);
    if (isStillPaired(session)) return report(context, session, "Already paired with");
    if (session.known()) {
        // It has refused this connection; the next one gets digits of its own.
        session.phone().close();
        session = AgentSession::open(context, options.replace);
    }
    const std::string digits =
        options.code ? sixDigits(*options.code).value() : askForDigits(context, session);
    if (digits != session.phone().code()) {
        session.phone().close();
        throw CommandError(
            "These are not the digits of this connection: a slip of the finger, or somebody in "
            "between who reads along. They were not sent. Try again; if it goes on, do not trust "
            "this network.");
    }
    session.admitWithCode(1920, admissionPatience, [&] {
        context.console.remark("Waiting for the computer; perhaps somebody has to agree there.");
    });
    report(context, session, "Paired with");
}

}  // namespace

void addPair(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<PairOptions>();
    auto* command = app.add_subcommand("pair", "Make this phone known to a computer");
    command->add_option("--code", options->code, "The six digits, else they are asked for")
        ->check([](const std::string& text) {
            return sixDigits(text) ? std::string() : std::string("six digits are needed");
        });
    command->add_flag("--replace", options->replace,
                      "Accept another computer where a known one was");
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { pair(context, *options); };
    });
}

}  // namespace orvel::phone
