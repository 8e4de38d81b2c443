#include "OrvelAgent/Platform/Linux/ChosenSecretStore.h"

#include <fcntl.h>

#include <cstdio>
#include <filesystem>

namespace orvel {

namespace {

constexpr std::string_view desktopRecord = "secret-service\n";
constexpr std::string_view filesRecord = "files\n";

}  // namespace

ChosenSecretStore::ChosenSecretStore(std::string file, std::string folder)
    : choiceFile(std::move(file)), files(std::move(folder)) {}

SecretStore& ChosenSecretStore::chosen() {
    const std::lock_guard hold(mutex);
    if (choice) return *choice;
    Bytes record;
    const FileDescriptor file(open(choiceFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file) readAll(file.get(), desktopRecord.size(), record);
    isRecorded = textOf(record) == desktopRecord || textOf(record) == filesRecord;
    const bool takeDesktop =
        isRecorded ? textOf(record) == desktopRecord : !files.hasItems() && desktop.answers();
    choice = takeDesktop ? static_cast<SecretStore*>(&desktop) : &files;
    return *choice;
}

void ChosenSecretStore::record() {
    const std::lock_guard hold(mutex);
    if (isRecorded) return;
    const std::filesystem::path path(choiceFile);
    int error = makeFolder(path.parent_path());
    const FileDescriptor folder(
        open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (error == 0) {
        const auto text = choice == &desktop ? desktopRecord : filesRecord;
        error = replaceFile(folder.get(), path.filename(), bytesOf(text));
    }
    isRecorded = true;  // or not: once is enough for this process
    if (error != 0) {
        std::fprintf(stderr, "orvel: the choice of a secret store cannot be kept: %s\n",
                     describeError(error).c_str());
    }
}

SecretStore::Item ChosenSecretStore::read(const std::string& service, const std::string& account) {
    auto item = chosen().read(service, account);
    if (item.status == Item::Status::found) record();
    return item;
}

bool ChosenSecretStore::add(const std::string& service, const std::string& account, ByteView data) {
    const bool added = chosen().add(service, account, data);
    if (added) record();
    return added;
}

bool ChosenSecretStore::replace(const std::string& service, const std::string& account,
                                ByteView data) {
    const bool replaced = chosen().replace(service, account, data);
    if (replaced) record();
    return replaced;
}

bool ChosenSecretStore::remove(const std::string& service, const std::string& account) {
    return chosen().remove(service, account);
}

}  // namespace orvel
