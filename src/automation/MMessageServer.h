// What the rest of the program asks of the message channel to a listening
// process: the address of this program, a message to the listener, and the
// end of listening. The channel itself lives in its own unit.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace quorvel {

class TMessageServer {
 public:
  virtual ~TMessageServer() = default;
  // This program's address, as the listener knows it.
  virtual long windowHandle() const = 0;
  // Raises "Error while sending message '%s' to %i: %i" and the like.
  virtual void sendMessageToListener(const std::string& message) = 0;
  virtual void close() = 0;
};

// The server of this process (me.server); null when the program does not
// listen.
TMessageServer* messageServer();
void setMessageServer(std::shared_ptr<TMessageServer> server);

// Where the sockets of the channel live: $XDG_RUNTIME_DIR/quorvel, or
// /tmp/quorvel-<uid> without it; and the socket of a number there.
std::string channelFolder();
std::string channelSocket(long number);

// Starts listening, as "-l" asks; `sendto` is the listener's address. A
// failure is logged and the start goes on.
void startMessageChannel(std::optional<int> sendto);

}  // namespace quorvel
