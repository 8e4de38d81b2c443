#include <algorithm>
#include <cmath>
#include <memory>

#include "Phone/Commands/ControlSession.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration step = 16ms;                            // between the events of a movement
constexpr double farthest = 100'000;                       // points, pixels
constexpr double momentumDecay = 0.95, momentumEnd = 0.5;  // a step; pixels a step

struct MoveOptions {
    std::vector<double> way;
    bool to = false;
};

struct ClickOptions {
    std::string button = "left";
    std::int64_t count = 1;
    std::vector<double> at;
};

struct DragOptions {
    std::vector<double> way;
    std::string button = "left";
    double seconds = 0.3;
};

struct ScrollOptions {
    std::vector<double> way;
    double seconds = 0.2;
    bool momentum = false;
};

// A number that is one: NaN is within any range otherwise.
CLI::Validator within(double least, double most) {
    return CLI::Validator(
        [=](const std::string& text) -> std::string {
            double value = 0;
            if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most)
                return {};
            return text + " is not between " + CLI::detail::to_string(least) + " and " +
                   CLI::detail::to_string(most);
        },
        "");
}

MouseButton buttonOf(const std::string& name) {
    return name == rawValue(MouseButton::right) ? MouseButton::right : MouseButton::left;
}

std::size_t stepsIn(double seconds) {
    const double each = std::chrono::duration<double>(step).count();
    return static_cast<std::size_t>(std::max(1.0, std::round(seconds / each)));
}

void move(CommandContext& context, const MoveOptions& options) {
    ControlSession session = ControlSession::open(context);
    const double x = options.way[0], y = options.way[1];
    options.to ? session.link().send({Control::MoveTo{x, y}})
               : session.link().send({Control::Move{x, y}});
    session.settle();
}

void click(CommandContext& context, const ClickOptions& options) {
    ControlSession session = ControlSession::open(context);
    const MouseButton button = buttonOf(options.button);
    if (!options.at.empty()) session.link().send({Control::MoveTo{options.at[0], options.at[1]}});
    for (std::int64_t clicks = 1; clicks <= options.count; ++clicks) {
        session.link().send({Control::Button{button, true, clicks}});
        session.link().send({Control::Button{button, false, clicks}});
    }
    session.settle();
}

void drag(CommandContext& context, const DragOptions& options) {
    ControlSession session = ControlSession::open(context);
    const Interrupt interrupt;  // the button has to come up again
    const MouseButton button = buttonOf(options.button);
    const auto& way = options.way;
    const std::size_t steps = stepsIn(options.seconds);
    session.link().send({Control::MoveTo{way[0], way[1]}});
    session.link().send({Control::Button{button, true, 1}});
    for (std::size_t i = 1; i <= steps && session.pass(step, interrupt); ++i) {
        const double part = double(i) / double(steps);
        session.link().send(
            {Control::MoveTo{std::lerp(way[0], way[2], part), std::lerp(way[1], way[3], part)}});
    }
    // Who looks where it was let go finds the pointer there, and not still on its way.
    session.pass(step, interrupt);
    session.link().send({Control::Button{button, false, 1}});
    session.settle();
}

// As two fingers do it: they touch, move, and leave; then, if wanted, what they moved runs out.
void scroll(CommandContext& context, const ScrollOptions& options) {
    ControlSession session = ControlSession::open(context);
    const Interrupt interrupt;
    const auto send = [&](double dx, double dy, ScrollPhase phase) {
        session.link().send({Control::Scroll{dx, dy, phase}});
    };
    const std::size_t steps = stepsIn(options.seconds);
    const double wayX = options.way[0], wayY = options.way[1];
    double dx = wayX / double(steps), dy = wayY / double(steps);
    double doneX = 0, doneY = 0;
    bool goesOn = true;
    send(0, 0, ScrollPhase::began);
    for (std::size_t i = 1; i <= steps && goesOn; ++i) {
        // Whole pixels but for the last step, so that the steps add up to the way exactly.
        const double x = i == steps ? wayX : std::round(dx * double(i));
        const double y = i == steps ? wayY : std::round(dy * double(i));
        send(x - doneX, y - doneY, ScrollPhase::changed);
        doneX = x;
        doneY = y;
        goesOn = session.pass(step, interrupt);
    }
    send(0, 0, ScrollPhase::ended);
    if (options.momentum) {
        while (goesOn && std::hypot(dx *= momentumDecay, dy *= momentumDecay) >= momentumEnd) {
            send(dx, dy, ScrollPhase::momentum);
            goesOn = session.pass(step, interrupt);
        }
        send(0, 0, ScrollPhase::momentumEnded);
    }
    session.settle();
}

}  // namespace

void addMove(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<MoveOptions>();
    auto* command = app.add_subcommand("move", "Move the pointer");
    command
        ->add_option(
            "WAY", options->way,
            "DX DY: so many points to the right and down. With --to X Y: that place of the "
            "display, 0 0 top left, 1 1 bottom right")
        ->required()
        ->expected(2)
        ->type_name("NUMBER NUMBER")
        ->check(within(-farthest, farthest));
    command->add_flag("--to", options->to, "To a place instead");
    command->callback([&chosen, options] {
        for (const double value : options->way) {
            if (options->to && (value < 0 || value > 1)) {
                throw CLI::ValidationError("--to", "X and Y lie between 0 and 1");
            }
        }
        chosen = [options](CommandContext& context) { move(context, *options); };
    });
}

void addClick(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ClickOptions>();
    auto* command = app.add_subcommand("click", "Click where the pointer is");
    command->add_option("BUTTON", options->button, "left (which it is without) or right")
        ->check(CLI::IsMember({"left", "right"}));
    command->add_option("--count", options->count, "2: a double click; up to 3 (1)")
        ->check(CLI::Range(1, 3));
    command->add_option("--at", options->at, "Move to this place first: X Y, each 0 to 1")
        ->expected(2)
        ->check(within(0, 1));
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { click(context, *options); };
    });
}

void addDrag(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<DragOptions>();
    auto* command = app.add_subcommand("drag", "Drag from one place of the display to another");
    command->add_option("WAY", options->way, "X1 Y1 X2 Y2, each 0 to 1")
        ->required()
        ->expected(4)
        ->check(within(0, 1));
    command->add_option("--button", options->button, "left or right (left)")
        ->check(CLI::IsMember({"left", "right"}));
    command->add_option("--seconds", options->seconds, "How long it takes (0.3)")
        ->check(within(0, 60));
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { drag(context, *options); };
    });
}

void addScroll(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ScrollOptions>();
    auto* command = app.add_subcommand("scroll", "Scroll what is under the pointer");
    command
        ->add_option("WAY", options->way,
                     "DX DY in pixels; positive: towards the left, towards the top")
        ->required()
        ->expected(2)
        ->type_name("NUMBER NUMBER")
        ->check(within(-farthest, farthest));
    command->add_option("--seconds", options->seconds, "How long the fingers move (0.2)")
        ->check(within(0, 60));
    command->add_flag("--momentum", options->momentum, "Let it run out afterwards");
    command->callback([&chosen, options] {
        chosen = [options](CommandContext& context) { scroll(context, *options); };
    });
}

}  // namespace orvel::phone
