#include "Tests/Support/SoundServer.h"

#include <signal.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace orvel {

bool SoundServer::isInstalled() {
    return BackgroundProcess({.command = {"pulseaudio", "--version"}, .outputFile = "/dev/null"})
               .wait() == 0;
}

SoundServer::SoundServer() {
    start();
}

void SoundServer::start() {
    player.reset();
    modules.clear();
    const std::string log = folder / "server.log";
    process = std::make_unique<BackgroundProcess>(BackgroundProcess::Options{
        .command = {"pulseaudio", "-n", "--daemonize=no", "--use-pid-file=no",
                    "--exit-idle-time=-1", "--disallow-exit", "--log-target=stderr", "-L",
                    "module-native-protocol-unix auth-cookie-enabled=0 socket=" + socket},
        .environment = {{"HOME", folder.path},
                        {"XDG_RUNTIME_DIR", folder.path},
                        {"XDG_CONFIG_HOME", folder.path},
                        {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
                        {"DBUS_SYSTEM_BUS_ADDRESS", "disabled:"}},
        .outputFile = log});
    const bool up = eventually([&] {
        BackgroundProcess asking(
            {.command = {"pactl", "--server", address(), "info"}, .outputFile = "/dev/null"});
        return asking.wait() == 0 || !process->isRunning();
    });
    if (!up || !process->isRunning()) throw std::runtime_error("no sound server: " + fileText(log));
}

void SoundServer::kill() {
    process->signal(SIGKILL);
    process->wait();
}

std::string SoundServer::control(std::vector<std::string> command) const {
    const TemporaryFolder answers;
    const std::string answer = answers / "answer";
    command.insert(command.begin(), {"pactl", "--server", address()});
    BackgroundProcess pactl({.command = command, .outputFile = answer});
    const auto status = pactl.wait();
    std::string text = fileText(answer);
    while (text.ends_with('\n'))
        text.pop_back();
    if (status != 0) throw std::runtime_error(command[3] + ": " + text);
    return text;
}

void SoundServer::addOutput(const std::string& name, int rate, int channels) {
    modules[name] =
        control({"load-module", "module-null-sink", "sink_name=" + name,
                 "rate=" + std::to_string(rate), "channels=" + std::to_string(channels)});
}

void SoundServer::removeOutput(const std::string& name) {
    control({"unload-module", modules.at(name)});
    modules.erase(name);
}

void SoundServer::makeDefault(const std::string& name) {
    control({"set-default-sink", name});
}

void SoundServer::playTone(const std::string& output, int frequency) {
    control(
        {"load-module", "module-sine", "sink=" + output, "frequency=" + std::to_string(frequency)});
}

void SoundServer::play(const std::string& output, const std::vector<std::int16_t>& frames,
                       int rate) {
    const std::string file = folder / "sound.raw";
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(frames.data()),
               static_cast<std::streamsize>(frames.size() * sizeof frames[0]));
    // So much in advance that a busy machine does not tear it.
    player = std::make_unique<BackgroundProcess>(BackgroundProcess::Options{
        .command = {"pacat", "--server", address(), "--playback", "--raw", "--device", output,
                    "--format=s16ne", "--channels=2", "--rate", std::to_string(rate),
                    "--latency-msec=2000", file}});
}

int SoundServer::listeners() const {
    const std::string list = control({"list", "short", "source-outputs"});
    return list.empty() ? 0 : static_cast<int>(std::count(list.begin(), list.end(), '\n') + 1);
}

}  // namespace orvel
