// The socket layer of the simulated client. No peer is reachable yet: a
// connection is refused, as by a host where nothing listens on the port,
// and the refusal arrives as an error event inside the pump.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

namespace sim {

namespace {

using platform::Failure;

constexpr int32_t kErrConnectionRefused = 10061;
constexpr int32_t kErrWrongState = 40006;

Failure SocketFailure(int32_t number) {
  switch (number) {
    case kErrConnectionRefused: return {number, "Connection is forcibly rejected"};
    case kErrWrongState:
      return {number, "Wrong protocol or connection state for the requested transaction or request"};
    default: return StandardFailure(number);
  }
}

class SimSockets : public platform::Sockets {
 public:
  int CreateSocket(platform::SocketEvents* owner) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("CreateSocket", "")) return static_cast<int>(f->result);
    int id = c.nextSocket++;
    c.socketTable[id].owner = owner;
    return id;
  }

  void DestroySocket(int socket) override {
    Context& c = Current();
    if (c.TakeFault("DestroySocket", "")) return;
    c.socketTable.erase(socket);
  }

  Failure Connect(int socket, const std::string& host, const std::string& port) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("Connect", host)) return SocketFailure(static_cast<int32_t>(f->lastError));
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end() || it->second.state != platform::kSocketClosed)
      return SocketFailure(kErrWrongState);
    SimSocket& s = it->second;
    s.host = host;
    s.port = port;
    s.sent.clear();
    s.received.clear();
    s.state = platform::kSocketConnecting;
    s.errorPending = true;
    s.errorNumber = kErrConnectionRefused;
    s.errorDescription = SocketFailure(kErrConnectionRefused).Description;
    s.transcriptIndex = static_cast<int>(c.sockets.size());
    c.sockets.push_back(nlohmann::json{{"host", host}, {"port", port}, {"sent", ""}, {"received", ""}});
    return {};
  }

  Failure SendData(int socket, const std::string& data) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("SendData", data)) return SocketFailure(static_cast<int32_t>(f->lastError));
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end() || it->second.state != platform::kSocketConnected)
      return SocketFailure(kErrWrongState);
    it->second.sent += data;
    c.sockets[it->second.transcriptIndex]["sent"] = it->second.sent;
    return {};
  }

  std::string GetData(int socket) override {
    Context& c = Current();
    if (c.TakeFault("GetData", "")) return "";
    return "";
  }

  void Close(int socket) override {
    Context& c = Current();
    if (c.TakeFault("Close", "")) return;
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end()) return;
    it->second.state = platform::kSocketClosed;
    it->second.errorPending = false;
  }

  int State(int socket) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("State", "")) return static_cast<int>(f->result);
    auto it = c.socketTable.find(socket);
    return it == c.socketTable.end() ? platform::kSocketClosed : it->second.state;
  }

  std::string LocalHostName() override {
    Context& c = Current();
    if (c.TakeFault("LocalHostName", "")) return "";
    if (c.machine.localHostName) return *c.machine.localHostName;
    if (c.machine.computerName) return *c.machine.computerName;
    return "localhost";
  }
};

}  // namespace

bool PumpSocketEvents() {
  Context& c = Current();
  std::vector<int> ids;
  for (const auto& [id, socket] : c.socketTable)
    if (socket.errorPending) ids.push_back(id);
  for (int id : ids) {
    auto it = c.socketTable.find(id);
    if (it == c.socketTable.end() || !it->second.errorPending) continue;
    it->second.errorPending = false;
    it->second.state = platform::kSocketError;
    int32_t number = it->second.errorNumber;
    std::string description = it->second.errorDescription;
    if (it->second.owner) it->second.owner->OnError(number, description);
  }
  return !ids.empty();
}

platform::Sockets& SocketsService() {
  static SimSockets service;
  return service;
}

}  // namespace sim
