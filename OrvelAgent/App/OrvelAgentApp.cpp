// The one place that creates things and connects them.

#include <unistd.h>

#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "OrvelAgent/App/AgentModel.h"
#include "OrvelAgent/App/CommandLine.h"
#include "OrvelAgent/App/DefaultsCommand.h"
#include "OrvelAgent/App/Headless.h"
#include "OrvelAgent/App/InternetAccess.h"
#include "OrvelAgent/App/LoginItem.h"
#include "OrvelAgent/App/ModelControl.h"
#include "OrvelAgent/App/Panel/AgentWindows.h"
#include "OrvelAgent/App/Panel/PanelApplication.h"
#include "OrvelAgent/App/Panel/Symbol.h"
#include "OrvelAgent/App/Panel/UpdatesBinding.h"
#include "OrvelAgent/App/QtMainQueue.h"
#include "OrvelAgent/App/Terminal.h"
#include "OrvelAgent/App/UpdateWindow.h"
#include "OrvelAgent/Control/AgentCommands.h"
#include "OrvelAgent/Control/ControlServer.h"
#include "OrvelAgent/Core/AgentCore.h"
#include "OrvelAgent/Core/TcpListener.h"
#include "OrvelAgent/Doctor/DoctorCommand.h"
#include "OrvelAgent/Platform/MainQueue.h"
#include "OrvelAgent/Platform/Memory.h"
#include "OrvelAgent/Platform/SocketOptions.h"
#include "OrvelAgent/Platform/StateStores.h"
#include "OrvelAgent/Platform/WindowSystem.h"
#include "OrvelKit/Base/Printable.h"
#include "OrvelKit/Base/QueueIo.h"

namespace orvel {
namespace {

constexpr unsigned endLimitSeconds = 5;

// The main queue: on Qt's event loop where there are windows, else on the system's own.
class MainLoop {
public:
    explicit MainLoop(bool hasWindows) {
        if (hasWindows) {
            application.emplace();
            windowed.emplace();
        } else {
            plain = makeMainQueue();
        }
    }
    SerialQueue& queue() { return windowed ? *windowed : *plain; }

private:
    std::optional<PanelApplication> application;
    std::optional<QtMainQueue> windowed;
    std::unique_ptr<SerialQueue> plain;
};

// Ends the program cleanly, once; should something hang, the system ends it soon.
class Ending {
public:
    Ending(SerialQueue& main, AgentModel& agentModel) : mainQueue(main), model(agentModel) {}

    void begin() {
        if (std::exchange(begun, true)) return;
        std::signal(SIGALRM, [](int) { _exit(0); });
        alarm(endLimitSeconds);
        model.quit([this] { mainQueue.stop(); });
    }

private:
    SerialQueue& mainQueue;
    AgentModel& model;
    bool begun = false;
};

// New versions, as the person at this computer meets them.
struct Updates {
    const std::unique_ptr<UpdateDriver> driver;
    Updater updater;
    UpdateWindow window;

    Updates(SerialQueue& mainQueue, Defaults& defaults, Notifier& notifier, HostInfo& host,
            const StateLocation& location)
        : driver(UpdateDriver::create(mainQueue, defaults, host, location)),
          updater(*driver, notifier),
          window(updater, QString::fromStdString(host.shortVersion().value_or("?"))) {
        window.setWindowIcon(programIcon());
    }
};

void logNewlyPaired(const PairedDevice& device) {
    std::fprintf(stderr, "orvel: a new phone was paired: %s (%s)\n", printable(device.name).c_str(),
                 device.id.c_str());
}

enum class Next { end, startAgain };

Next runAgent(const RunOptions& run, const StateLocation& location, HostInfo& host) {
    std::unique_ptr<InstanceLock> lock;
    switch (InstanceLock::acquire(location, lock)) {
        case InstanceLock::Outcome::taken:
            break;
        case InstanceLock::Outcome::heldByAnother:
            std::fprintf(stderr, "orvel: another agent runs on this state already\n");
            // Whoever starts it a second time wants to see it.
            if (!run.headless && !run.atLogin) showRunningAgent(location);
            return Next::end;
        case InstanceLock::Outcome::unavailable:
            std::fprintf(stderr, "orvel: the state cannot be locked, going on without\n");
            break;
    }

    const bool hasWindows = !run.headless && prepareWindowSystem();
    if (!run.headless && !hasWindows) {
        std::fprintf(stderr, "orvel: no display answers: no windows, but lines in this terminal\n");
    }
    // Before there are threads: Qt sets the C library's locale.
    MainLoop mainLoop(hasWindows);
    SerialQueue& mainQueue = mainLoop.queue();
    StateStores stores = StateStores::create(location);
    const auto permissions = Permissions::create();
    const auto power = Power::create();
    const auto files = FileSystem::create();
    const auto notifier = Notifier::create();
    const auto poster = EventPoster::create(*stores.defaults);

    // Queues outlive what runs on them: they go last, and "orvel.agent" before the ones it posts
    // to.
    SerialQueue captureQueue("orvel.capture");
    SerialQueue audioQueue("orvel.audio");
    SerialQueue filesQueue("orvel.files");
    SerialQueue realtimeQueue("orvel.realtime");
    SerialQueue accountQueue("orvel.account");
    SerialQueue controlQueue("orvel.control");
    SerialQueue agentQueue("orvel.agent");

    const CompressionSession::Factory compression = [](const auto& specification) {
        return CompressionSession::create(specification);
    };
    InternetAccess internet(
        {realtimeQueue, accountQueue, *stores.defaults, *stores.secrets, host, compression});
    RemotePresence::Parts presence = internet.presence();
    const bool relayConfigured = presence.relay().has_value();
    AgentCore::Options options{run.name, run.port, run.address};
    auto core = AgentCore::make(
        {agentQueue, captureQueue, audioQueue, filesQueue, mainQueue, *stores.defaults,
         *stores.secrets, *permissions, *power, host, *poster, *files,
         ScreenSource::create(captureQueue, audioQueue), compression, makeTcpListener(agentQueue),
         run.advertise ? ServiceAdvertiser::create() : nullptr, std::move(presence)},
        options);
    const auto pasteboard = Pasteboard::create(mainQueue);
    const auto workspace = Workspace::create(mainQueue);
    const auto textFocus = TextFocus::create(mainQueue);
    const auto model = std::make_shared<AgentModel>(AgentModel::Parts{
        mainQueue, core, *stores.defaults, *permissions, *power, *pasteboard, *workspace,
        *textFocus, *notifier, relayConfigured,
        // Pictures leave holes between what stays, and more of them with each session.
        releaseFreeMemory});
    QObject::connect(model.get(), &AgentModel::newlyPaired, logNewlyPaired);

    Next next = Next::end;
    Ending ending(mainQueue, *model);
    boost::asio::signal_set signals(ioContext(agentQueue), SIGINT, SIGTERM);
    signals.async_wait([&](auto error, int) {
        if (!error) mainQueue.post([&] { ending.begin(); });
    });

    // Only the user's own agent is started at login: none beside it on another state.
    const auto loginService = LoginService::create();
    std::optional<LoginItem> login;
    if (!run.headless && !location.folder) login.emplace(*loginService, *stores.defaults);

    std::optional<Headless> headless;
    std::optional<Terminal> terminal;
    // Not without windows: nobody would be asked before something is installed.
    std::optional<Updates> updates;
    std::optional<AgentWindows> windows;
    if (run.headless) {
        headless.emplace(mainQueue, *model, [&] { ending.begin(); });
        headless->start(core->identity);
    }
    if (hasWindows) {
        updates.emplace(mainQueue, *stores.defaults, *notifier, host, location);
        QObject::connect(&updates->updater, &Updater::relaunchWanted, [&] {
            next = Next::startAgain;
            ending.begin();
        });
        windows.emplace(AgentWindows::Parts{
            .model = *model,
            .login = login ? &*login : nullptr,
            .connectUpdates =
                [&](UpdatesSection& section) { connectUpdates(section, updates->updater); },
            .version = QString::fromStdString(core->agentVersion),
            .webHost = QStringLiteral(ORVEL_WEB_HOST),
            .startedByDesktop = run.atLogin,
        });
        QObject::connect(&*windows, &AgentWindows::quitWanted, [&] { ending.begin(); });
        windows->start();
    }
    // Beside windows only where somebody reads it: what it says is not for logs.
    if (!run.headless && (!hasWindows || isatty(STDOUT_FILENO))) {
        terminal.emplace(mainQueue, *model, [&] { ending.begin(); });
        terminal->start();
    } else if (hasWindows) {
        QObject::connect(model.get(), &AgentModel::listening, [](std::uint16_t port) {
            std::fprintf(stderr, "orvel: listening on port %u\n", port);
        });
    }
    ModelControl control(
        {*model, core, agentQueue, mainQueue, run.address, run.advertise, [&] { ending.begin(); }});
    if (windows) control.onShow = [&] { windows->showPanel(); };
    std::optional<ControlServer> server;
    if (auto socket = lock ? ControlSocket::listen(*lock) : nullptr) {
        server.emplace(controlQueue, mainQueue, std::move(socket),
                       [&](const auto& request, auto answer) { control.handle(request, answer); });
        control.publishTo(*server);
    }
    mainQueue.post([&] { model->start(); });
    mainQueue.run();
    return next;
}

// As whatever is installed under the name that this program was started by. Returns if that fails.
int startAgain(char** arguments) {
    alarm(0);  // the limit of the ending would hold for what is started, too
    execvp(arguments[0], arguments);
    std::fprintf(stderr, "orvel: cannot start again\n");
    return 1;
}

int run(int count, char** arguments) {
    returnLargeBuffers();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTTIN, SIG_IGN);  // in the background of a shell the input just ends
    const auto host = HostInfo::create();
    const auto line = CommandLine::parse(count, arguments, host->shortVersion().value_or("?"));
    const StateLocation location{line.stateFolder};
    if (const auto* message = std::get_if<CommandLine::Message>(&line.action)) {
        std::fputs(message->text.c_str(), message->exitStatus == 0 ? stdout : stderr);
        return message->exitStatus;
    }
    if (const auto* defaults = std::get_if<CommandLine::DefaultsCommand>(&line.action)) {
        const auto stores = StateStores::create(location);
        return runDefaultsCommand(*stores.defaults, defaults->arguments, std::cout, std::cerr);
    }
    if (const auto* command = std::get_if<AgentCommand>(&line.action)) {
        CommandContext context{location, std::cout, std::cerr};
        return (*command)(context);
    }
    if (const auto* doctor = std::get_if<DoctorCommand>(&line.action)) {
        return runDoctor({location, systemChecks, {prepareConnectedSocket, {}}}, *doctor,
                         std::cout);
    }
    const Next next = runAgent(std::get<RunOptions>(line.action), location, *host);
    return next == Next::startAgain ? startAgain(arguments) : 0;
}

}  // namespace
}  // namespace orvel

int main(int count, char** arguments) {
    return orvel::run(count, arguments);
}
