#include "OrvelKit/Base/Json.h"
#include "Phone/Commands/ControlSession.h"

namespace orvel::phone {

namespace {

std::string jsonOf(const DisplayInfo& display, bool isStreamed) {
    JsonWriter json;
    json.beginObject();
    json.key("id");
    json.unsignedInteger(display.id);
    json.key("name");
    json.string(display.name);
    json.key("width");
    json.number(display.width);
    json.key("height");
    json.number(display.height);
    json.key("streamed");
    json.boolean(isStreamed);
    json.endObject();
    return json.take();
}

void displays(CommandContext& context) {
    const ControlSession session = ControlSession::open(context);
    const Welcome& welcome = session.welcome();
    for (const DisplayInfo& display : welcome.displays.value_or(std::vector<DisplayInfo>{})) {
        const bool isStreamed = display.id == welcome.displayID;
        if (context.settings.json) {
            context.console.say(jsonOf(display, isStreamed));
            continue;
        }
        JsonWriter size;  // writes whole numbers as such
        size.number(display.width);
        std::string text = size.take() + "x";
        size.number(display.height);
        text += size.take();
        context.console.say((isStreamed ? "* " : "  ") + std::to_string(display.id) + "  " +
                            display.name + "  " + text);
    }
    if (!welcome.displays) throw CommandError(session.name() + " does not list its displays.");
}

}  // namespace

void addDisplays(CLI::App& app, Command& chosen) {
    app.add_subcommand("displays", "List the computer's displays; * is the one that is shown")
        ->callback([&chosen] { chosen = displays; });
}

}  // namespace orvel::phone
