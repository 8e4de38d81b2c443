#pragma once

#include "OrvelAgent/App/Panel/UpdatesSection.h"
#include "OrvelAgent/App/Updater.h"

namespace orvel {

// The section shows what the updater says, and hands it what the user does. The updater outlives
// the section. For AgentWindows::Parts::connectUpdates, as the panel is made at its first opening:
//     .connectUpdates = [&](UpdatesSection& section) { connectUpdates(section, updater); }
inline void connectUpdates(UpdatesSection& section, Updater& updater) {
    const auto show = [&section, &updater] {
        section.show({updater.availableVersion(), updater.canCheck(), updater.automaticChecks(),
                      updater.stateText(), updater.isConfigured()});
    };
    for (const auto signal : {&Updater::canCheckChanged, &Updater::availableVersionChanged,
                              &Updater::automaticChecksChanged, &Updater::stateChanged}) {
        QObject::connect(&updater, signal, &section, show);
    }
    show();
    QObject::connect(&section, &UpdatesSection::installWanted, &updater, &Updater::install);
    QObject::connect(&section, &UpdatesSection::checkWanted, &updater, &Updater::checkForUpdates);
    QObject::connect(&section, &UpdatesSection::automaticChecksChosen, &updater,
                     &Updater::setAutomaticChecks);
}

}  // namespace orvel
