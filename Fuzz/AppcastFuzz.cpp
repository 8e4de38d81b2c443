#include "Fuzz/Fuzz.h"
#include "OrvelAgent/Update/Appcast.h"
#include "OrvelAgent/Update/VersionOrder.h"

// Whatever a feed says, what is read from it keeps to the bounds, and no item is newer than the
// newest.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvel;
    const auto items = Appcast::parse({data, size});
    if (!items) return 0;
    for (const auto& item : *items) {
        const auto& update = item.update;
        claim(item.package.scheme() == "https" && !item.package.host().empty(), "https only");
        claim(update.length > 0 && update.length <= Appcast::maxPackage, "a length");
        claim(!update.version.empty() && update.version.size() <= Appcast::maxVersion, "a version");
        claim(update.version.find('/') == std::string::npos, "a file's name can have it");
        claim(update.notes.size() <= Appcast::maxNotes, "notes are short");
        claim(update.displayVersion.find('\n') == std::string::npos, "one line");
        claim(item.signature.empty() || item.signature.size() == 64, "a signature or none");
        const Appcast::Target target{item.system, item.type, item.architecture, "6.1"};
        if (const auto* newest = Appcast::newest(*items, target)) {
            const bool fits = item.minimumSystemVersion.empty() ||
                              compareVersions(item.minimumSystemVersion, "6.1") <= 0;
            claim(!fits || compareVersions(update.version, newest->update.version) <= 0, "newest");
        }
        claim(compareVersions(update.version, update.version) == 0, "equal to itself");
    }
    return 0;
}
