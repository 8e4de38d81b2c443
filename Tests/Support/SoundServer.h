#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

// A PulseAudio server of the test's own, with outputs that have no device. Nobody else knows it,
// and it knows no bus and no settings of the user's.
class SoundServer {
public:
    // A desktop with another sound server has no use for this one.
    static bool isInstalled();

    SoundServer();  // throws std::runtime_error, as everything here when the server refuses

    // As in $PULSE_SERVER.
    std::string address() const { return "unix:" + socket; }

    // An output that plays for nobody, at the speed of its clock. The first one is the default.
    // Nobody listening, it may run two seconds ahead: who wants all of a sound listens before.
    void addOutput(const std::string& name, int rate = 48'000, int channels = 2);
    void removeOutput(const std::string& name);
    void makeDefault(const std::string& name);
    // A sine of amplitude 0.5 on all channels of that output for as long as it exists.
    void playTone(const std::string& output, int frequency);
    // Sound in stereo, interleaved; comes in one unbroken piece.
    void play(const std::string& output, const std::vector<std::int16_t>& frames, int rate);

    // Those who listen to something.
    int listeners() const;

    // Ends at once, as after a crash.
    void kill();
    // A new one at the same address, without outputs.
    void start();

private:
    std::string control(std::vector<std::string> command) const;

    TemporaryFolder folder;
    const std::string socket = folder / "native";
    std::map<std::string, std::string> modules;  // of the outputs, by their names
    std::unique_ptr<BackgroundProcess> process, player;
};

}  // namespace orvel
