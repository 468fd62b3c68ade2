#include "automation/MMessageServer.h"

#include "engine/MMediator.h"

namespace quorvel {

namespace {
std::shared_ptr<TMessageServer> g_Server;
}

TMessageServer* messageServer() { return g_Server.get(); }
void setMessageServer(std::shared_ptr<TMessageServer> server) { g_Server = std::move(server); }

void startMessageChannel(std::optional<int>) {
  logCriticalError("Could not start listening server: 'the message channel is not available in this build'");
}

}  // namespace quorvel
