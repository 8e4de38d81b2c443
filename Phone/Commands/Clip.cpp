#include <memory>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/Printable.h"
#include "Phone/Commands/ControlSession.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

struct ClipOptions {
    std::optional<std::string> text;
    std::size_t count = 0;  // 0: until interrupted
};

void setClipboard(CommandContext& context, std::string text) {
    const Control control{Control::Clipboard{std::move(text)}};
    // A longer control would end the connection instead.
    const std::size_t most =
        context.settings.internet ? InternetConnection::maxControl : FrameBuffer::longestSealed;
    if (control.toJson().size() > most) throw CommandError("The text is too long for a clipboard.");
    ControlSession session = ControlSession::open(context);
    session.link().send(control);
    session.settle();
}

// The lines of a text, each printable.
std::string printableLines(std::string_view text) {
    std::string lines;
    for (;;) {
        const std::size_t end = text.find('\n');
        lines += printable(text.substr(0, end));
        if (end == std::string_view::npos) return lines;
        lines += '\n';
        text.remove_prefix(end + 1);
    }
}

std::string json(const std::string& text) {
    JsonWriter writer;
    writer.beginObject();
    writer.key("clipboard");
    writer.string(text);
    writer.endObject();
    return writer.take();
}

void followClipboard(CommandContext& context, std::size_t count) {
    const Interrupt interrupt;
    ControlSession session = ControlSession::open(context);
    for (std::size_t seen = 0; !interrupt.isRequested();) {
        const auto event = session.next(100ms);
        const auto* clipboard = event ? event->as<Control::Clipboard>() : nullptr;
        if (!clipboard) continue;
        const std::string& text = clipboard->text;
        context.console.say(context.settings.json             ? json(text)
                            : context.console.outIsTerminal() ? printableLines(text)
                                                              : text);
        if (++seen == count) return;
    }
}

void clip(CommandContext& context, const ClipOptions& options) {
    if (!options.text) return followClipboard(context, options.count);
    setClipboard(context, *options.text == "-" ? context.console.readAll() : *options.text);
}

}  // namespace

void addClip(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ClipOptions>();
    auto* command = app.add_subcommand(
        "clip", "Print what is copied on the computer, as it happens; or set its clipboard");
    auto* text = command->add_option("TEXT", options->text,
                                     "Put this text there. With - what standard input gives");
    command->add_option("-c,--count", options->count, "End after so many texts (at Ctrl-C)")
        ->check(CLI::Range(1, 1'000'000))
        ->excludes(text);
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { clip(context, *options); };
    });
}

}  // namespace orvel::phone
