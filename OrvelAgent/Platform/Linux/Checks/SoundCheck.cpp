#include "OrvelAgent/Platform/Linux/Checks/SoundCheck.h"

#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>

#include <chrono>
#include <memory>

#include "OrvelAgent/Platform/Linux/XConnect.h"

namespace orvel {

namespace {

using Level = Finding::Level;

struct Inquiry {
    SoundFacts facts;
    bool isOver = false;
};

void serverAnswered(pa_context*, const pa_server_info* info, void* given) {
    auto& inquiry = *static_cast<Inquiry*>(given);
    inquiry.isOver = true;
    if (!info) return;
    inquiry.facts.answers = true;
    inquiry.facts.server = info->server_name ? info->server_name : "";
    inquiry.facts.output = info->default_sink_name ? info->default_sink_name : "";
}

void stateChanged(pa_context* context, void* given) {
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY:
            if (auto* asked = pa_context_get_server_info(context, serverAnswered, given)) {
                pa_operation_unref(asked);
            }
            break;
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            static_cast<Inquiry*>(given)->isOver = true;
            break;
        default:
            break;
    }
}

}  // namespace

SoundFacts SoundFacts::look(Duration limit) {
    Inquiry inquiry;
    const std::unique_ptr<pa_mainloop, decltype(&pa_mainloop_free)> loop(pa_mainloop_new(),
                                                                         &pa_mainloop_free);
    const std::unique_ptr<pa_context, decltype(&pa_context_unref)> context(
        pa_context_new(pa_mainloop_get_api(loop.get()), "orvel-agent doctor"), &pa_context_unref);
    pa_context_set_state_callback(context.get(), stateChanged, &inquiry);
    {
        // It looks for a server's address on the X server, too.
        const auto hold = holdXConnecting();
        if (pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
            return inquiry.facts;
        }
    }
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + limit;
    while (!inquiry.isOver && Clock::now() < deadline) {
        constexpr int tenthOfSecond = 100'000;
        if (pa_mainloop_prepare(loop.get(), tenthOfSecond) < 0 ||
            pa_mainloop_poll(loop.get()) < 0 || pa_mainloop_dispatch(loop.get()) < 0) {
            break;
        }
    }
    pa_context_set_state_callback(context.get(), nullptr, nullptr);
    pa_context_disconnect(context.get());
    return inquiry.facts;
}

std::vector<Finding> soundFindings(const SoundFacts& facts) {
    const auto finding = [](Level level, std::string text, std::string advice) {
        return std::vector{Finding{level, "sound", std::move(text), std::move(advice)}};
    };
    if (!facts.answers) {
        return finding(Level::warning, "no sound server answers: phones hear nothing",
                       "Start the session's: systemctl --user start pipewire-pulse, or: pulseaudio "
                       "--start. To install one: sudo apt install pipewire-pulse");
    }
    if (facts.output.empty()) {
        return finding(Level::warning, facts.server + " has no output: phones hear nothing",
                       "Look for the sound card: pactl list cards");
    }
    if (facts.output == "auto_null") {
        return finding(Level::warning,
                       facts.server +
                           " found no sound card and plays into nothing; phones hear it "
                           "all the same",
                       "");
    }
    return finding(Level::ok, facts.server + ", output " + facts.output, "");
}

}  // namespace orvel
