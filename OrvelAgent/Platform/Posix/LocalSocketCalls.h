#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <functional>
#include <optional>

namespace orvel {

// What the systems do each in their own way about sockets in the file system.

// A stream socket that does not block and is closed on exec; -1 with errno.
int newLocalSocket();

// Calls `use` with an address of `name` in the open folder, however long the folder's path is; the
// address leads there during the call. Returns what `use` does; false with errno when there is no
// such address.
bool withLocalAddress(int folder, const char* name,
                      const std::function<bool(const sockaddr_un&)>& use);

// Who is at the other end of a connected socket.
std::optional<uid_t> userOfPeer(int descriptor);

}  // namespace orvel
