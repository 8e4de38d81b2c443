#include <memory>

#include "OrvelKit/Base/Unicode.h"
#include "Phone/Commands/ControlSession.h"
#include "Phone/KeyStroke.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t pieceLength = 2048;  // bytes of text before the computer is waited for
constexpr Duration repeatDelay = 500ms, repeatInterval = 33ms;

struct TypeOptions {
    std::string text;
};

struct KeyOptions {
    std::vector<std::string> keys;
    bool down = false, up = false;
    double hold = 0;
};

// The longest front of `text` of at most `most` bytes that cuts no character in two.
std::string_view frontOf(std::string_view text, std::size_t most) {
    std::size_t length = 0;
    while (length < text.size()) {
        const std::size_t next = characterLength(text.substr(length));
        if (length + next > most) break;
        length += next;
    }
    return text.substr(0, length);
}

void requireText(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) throw CommandError("The text is not UTF-8.");
        text.remove_prefix(length);
    }
}

std::string withLineFeeds(std::string text) {
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;)
        text.erase(at, 1);
    return text;
}

void type(CommandContext& context, const TypeOptions& options) {
    const std::string text =
        options.text == "-" ? withLineFeeds(context.console.readAll()) : options.text;
    requireText(text);
    ControlSession session = ControlSession::open(context);
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view piece = frontOf(rest, pieceLength);
        session.link().send({Control::Text{std::string(piece)}});
        session.settle();
        rest.remove_prefix(piece.size());
    }
}

void hold(ControlSession& session, const KeyStroke& stroke, Duration time) {
    const Interrupt interrupt;  // the key has to come up again
    const Control press{Control::Key{stroke.code, true, stroke.modifiers}};
    const MonotonicTime end = std::chrono::steady_clock::now() + time;
    Duration wait = repeatDelay;
    session.link().send(press);
    for (;;) {
        const Duration left = end - std::chrono::steady_clock::now();
        if (!session.pass(std::min(left, wait), interrupt) || left <= wait) break;
        session.link().send(press);
        wait = repeatInterval;
    }
}

void key(CommandContext& context, const KeyOptions& options) {
    ControlSession session = ControlSession::open(context);
    const std::chrono::duration<double> holdTime(options.hold);
    for (const std::string& name : options.keys) {
        const KeyStroke stroke = KeyStroke::parse(name).value();
        if (options.hold > 0) {
            hold(session, stroke, std::chrono::duration_cast<Duration>(holdTime));
        } else if (!options.up) {
            session.link().send({Control::Key{stroke.code, true, stroke.modifiers}});
        }
        if (!options.down) {
            session.link().send({Control::Key{stroke.code, false, stroke.modifiers}});
        }
    }
    session.settle();
}

std::string keyHelp() {
    std::string names;
    for (const std::string& name : KeyStroke::names())
        names += (names.empty() ? "" : ", ") + name;
    return "Keys, one after the other, like a, cmd+shift+z or f5. Modifiers: cmd, ctrl, alt, "
           "shift, "
           "fn. Keys: a character of a US keyboard or one of ığüşöç, " +
           names + ", or code:N (a key of the Mac by its number)";
}

}  // namespace

void addType(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<TypeOptions>();
    auto* command =
        app.add_subcommand("type", "Type text, whatever the computer's keyboard layout");
    command
        ->add_option("TEXT", options->text,
                     "The text; a line feed presses Return. With - what standard input gives")
        ->required();
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { type(context, *options); };
    });
}

void addKey(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<KeyOptions>();
    auto* command = app.add_subcommand("key", "Press keys");
    command->add_option("KEY", options->keys, keyHelp())
        ->required()
        ->check([](const std::string& name) {
            return KeyStroke::parse(name) ? "" : name + " is no key: see key --help";
        });
    auto* down = command->add_flag(
        "--down", options->down,
        "Leave them pressed. They come up with --up, or when the connection ends: so this is "
        "for use beside a running watch");
    auto* up = command->add_flag("--up", options->up, "Let go of them only")->excludes(down);
    command
        ->add_option("--hold", options->hold,
                     "Seconds to hold each; it repeats like a real one meanwhile")
        ->check(CLI::Range(0.001, 600.0))
        ->excludes(down)
        ->excludes(up);
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { key(context, *options); };
    });
}

}  // namespace orvel::phone
