// The socket layer of the simulated client: real non-blocking TCP
// connections from this host to the peer named, or an SMTP server played
// inside the simulator (machine.json's smtp, or a dry run's default), served
// the way the socket control serves them. Connect, DataArrival and Error
// reach their owner only inside the pump; State numbers the connection as
// the control does (0 closed, 6 connecting, 7 connected, 8 closing after the
// peer closed, 9 after an error).
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <cerrno>
#include <chrono>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <optional>

namespace sim {

namespace {

// The host's socket calls, each system's in its own branch; failures give
// the errno value of the same meaning.
#ifdef _WIN32
using ssize_t = long long;
constexpr int kSendFlags = 0;
constexpr int kReceiveFlags = 0;

int SocketError() {
  switch (WSAGetLastError()) {
    case WSAEWOULDBLOCK: return EWOULDBLOCK;
    case WSAEINPROGRESS: return EINPROGRESS;
    case WSAEINTR: return EINTR;
    case WSAECONNREFUSED: return ECONNREFUSED;
    case WSAECONNRESET: return ECONNRESET;
    case WSAETIMEDOUT: return ETIMEDOUT;
    case WSAENETUNREACH: return ENETUNREACH;
    case WSAEHOSTUNREACH: return EHOSTUNREACH;
    default: return ECONNABORTED;
  }
}

void CloseSocket(int fd) { ::closesocket(static_cast<SOCKET>(fd)); }

int OpenStreamSocket() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  if (!started) return -1;
  SOCKET s = ::socket(AF_INET, SOCK_STREAM, 0);
  if (s == INVALID_SOCKET) return -1;
  u_long on = 1;
  ::ioctlsocket(s, FIONBIO, &on);
  return static_cast<int>(s);
}

// A non-blocking connect that has begun gives "would block" here.
bool ConnectStarted() { return WSAGetLastError() == WSAEWOULDBLOCK; }

int PollSockets(pollfd* fds, unsigned long count, int milliseconds) {
  if (count == 0) {
    ::Sleep(static_cast<DWORD>(milliseconds));
    return 0;
  }
  return ::WSAPoll(fds, count, milliseconds);
}
#else
constexpr int kSendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
constexpr int kReceiveFlags = MSG_DONTWAIT;

int SocketError() { return errno; }

void CloseSocket(int fd) { ::close(fd); }

int OpenStreamSocket() { return ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

bool ConnectStarted() { return errno == EINPROGRESS; }

int PollSockets(pollfd* fds, unsigned long count, int milliseconds) {
  return ::poll(fds, static_cast<nfds_t>(count), milliseconds);
}
#endif

}  // namespace

void HostSocket::Reset() {
  if (fd >= 0) CloseSocket(fd);
  fd = -1;
}

HostSocket& HostSocket::operator=(HostSocket&& other) noexcept {
  if (this != &other) {
    Reset();
    fd = other.fd;
    other.fd = -1;
  }
  return *this;
}

namespace {

using platform::Failure;

constexpr int32_t kErrBadState = 40006;
constexpr int32_t kErrInvalidArg = 40014;
constexpr int32_t kErrOutOfRange = 40021;
constexpr int32_t kErrNetworkUnreachable = 10051;
constexpr int32_t kErrConnectAborted = 10053;
constexpr int32_t kErrConnectionReset = 10054;
constexpr int32_t kErrTimedOut = 10060;
constexpr int32_t kErrConnectionRefused = 10061;
constexpr int32_t kErrHostNotFound = 11001;

constexpr size_t kReceiveChunk = 65536;

// The socket control's own numbers and texts.
Failure SocketFailure(int32_t number) {
  switch (number) {
    case kErrBadState:
      return {number, "Wrong protocol or connection state for the requested transaction or request"};
    case kErrInvalidArg:
      return {number, "The argument passed to a function was not in the correct format or in the specified range"};
    case kErrOutOfRange: return {number, "Argument is out of range"};
    case kErrNetworkUnreachable: return {number, "The network cannot be reached from this host at this time"};
    case kErrConnectAborted: return {number, "Connection is aborted due to timeout or other failure"};
    case kErrConnectionReset: return {number, "The connection is reset by remote side"};
    case kErrTimedOut: return {number, "The attempt to connect timed out"};
    case kErrConnectionRefused: return {number, "Connection is forcefully rejected"};
    case kErrHostNotFound: return {number, "Authoritative answer: Host not found"};
    default: return StandardFailure(number);
  }
}

// The control's error for a failure of the host's socket calls.
int32_t ErrorForErrno(int error) {
  switch (error) {
    case ECONNREFUSED: return kErrConnectionRefused;
    case ECONNRESET:
    case EPIPE: return kErrConnectionReset;
    case ETIMEDOUT: return kErrTimedOut;
    case ENETUNREACH:
    case EHOSTUNREACH: return kErrNetworkUnreachable;
    default: return kErrConnectAborted;
  }
}

// An error event waits for the next pump; the connection is gone.
void QueueError(SimSocket& s, int32_t number) {
  Failure f = SocketFailure(number);
  s.errorPending = true;
  s.errorNumber = f.Number;
  s.errorDescription = f.Description;
  s.outbox.clear();
}

std::string& TranscriptText(Context& c, const SimSocket& s, const char* field) {
  return c.sockets[s.transcriptIndex][field].get_ref<std::string&>();
}

// The transcript notes what the connection came to, and whether the client
// spoke last, so that a wait for the server can be told apart.
void NoteConnected(Context& c, const SimSocket& s) {
  c.sockets[s.transcriptIndex]["connected"] = true;
  c.socketNotes[s.transcriptIndex].awaiting = true;
}

// Takes what arrived into the transcript; an SMTP answer is whole once it
// ends a line.
void NoteReceived(Context& c, const SimSocket& s, const char* data, size_t size) {
  std::string& received = TranscriptText(c, s, "received");
  received.append(data, size);
  c.socketNotes[s.transcriptIndex].awaiting = !received.ends_with("\r\n");
}

void NoteError(Context& c, const SimSocket& s, int32_t number, const std::string& description) {
  c.sockets[s.transcriptIndex]["error"] = nlohmann::json{{"number", number}, {"description", description}};
}

// ------------------------------------------------------------ the played peer
//
// An SMTP server played inside the simulator, so that a rehearsal sends no
// mail: it answers each whole command line (220 at the greeting, 250 to HELO,
// MAIL and RCPT, 354 to DATA, 250 to the message ended by a line holding a
// lone point, 221 to QUIT); "refuse" answers its step (1 greeting ... 6
// message) with 550, "silent" never answers. It touches no host socket.

constexpr int kGreetingStep = 1;
constexpr int kMessageStep = 6;

// The answer of a step, or 550 where the peer refuses that step; false
// when it refused.
bool Answer(PlayedPeer& p, int step, const std::string& text) {
  const bool refused = p.peer.mode == SmtpPeer::kRefuse && p.peer.refuseStep == step;
  p.toClient += (refused ? std::string("550 Requested action not taken") : text) + "\r\n";
  return !refused;
}

void Greet(PlayedPeer& p, const std::string& host) {
  if (p.peer.mode != SmtpPeer::kSilent) Answer(p, kGreetingStep, "220 " + host + " Service ready");
}

// Takes what the client sent and answers every whole command and message.
void Serve(PlayedPeer& p, const std::string& host, const std::string& data) {
  if (p.peer.mode == SmtpPeer::kSilent || p.closed) return;
  p.fromClient += data;
  for (;;) {
    if (p.inData) {
      // The CR LF that ended DATA may be the first of the end mark.
      size_t end = ("\r\n" + p.fromClient).find("\r\n.\r\n");
      if (end == std::string::npos) return;
      p.fromClient.erase(0, end + 3);
      p.inData = false;
      Answer(p, kMessageStep, "250 OK");
      continue;
    }
    size_t eol = p.fromClient.find("\r\n");
    if (eol == std::string::npos) return;
    std::string verb = UpperAscii(p.fromClient.substr(0, std::min<size_t>(eol, 4)));
    p.fromClient.erase(0, eol + 2);
    if (verb == "HELO" || verb == "EHLO") {
      Answer(p, 2, "250 " + host);
    } else if (verb == "MAIL") {
      Answer(p, 3, "250 OK");
    } else if (verb == "RCPT") {
      Answer(p, 4, "250 OK");
    } else if (verb == "DATA") {
      p.inData = Answer(p, 5, "354 Start mail input; end with <CRLF>.<CRLF>");
    } else if (verb == "QUIT") {
      p.toClient += "221 " + host + " Service closing transmission channel\r\n";
      p.closed = true;
      return;
    } else {
      p.toClient += "500 Command not recognized\r\n";
    }
  }
}

// One event of a socket whose peer is played; true when one ran.
bool PumpPlayed(Context& c, SimSocket& s) {
  platform::SocketEvents* owner = s.owner;
  PlayedPeer& p = *s.played;
  if (s.state == platform::kSocketConnecting) {
    s.state = platform::kSocketConnected;
    NoteConnected(c, s);
    Greet(p, s.host);
    if (owner) owner->OnConnect();
    return true;
  }
  if (s.state != platform::kSocketConnected) return false;
  if (!p.toClient.empty()) {
    std::string data;
    data.swap(p.toClient);
    s.inbox += data;
    NoteReceived(c, s, data.data(), data.size());
    if (owner) owner->OnDataArrival(static_cast<long>(s.inbox.size()));
    return true;
  }
  if (p.closed) {
    s.state = platform::kSocketClosing;
    c.socketNotes[s.transcriptIndex].serverClosed = true;
    return true;
  }
  return false;
}

bool PlayedEventDue(const SimSocket& s) {
  return s.played && (s.state == platform::kSocketConnecting ||
                      (s.state == platform::kSocketConnected && (!s.played->toClient.empty() || s.played->closed)));
}

// Hands what the host will take of the outbox to the connection.
void Flush(SimSocket& s) {
  while (!s.outbox.empty() && s.connection.fd >= 0) {
    ssize_t n = ::send(s.connection.fd, s.outbox.data(), static_cast<int>(s.outbox.size()), kSendFlags);
    int error = n < 0 ? SocketError() : 0;
    if (n > 0) {
      s.outbox.erase(0, static_cast<size_t>(n));
    } else if (n < 0 && error == EINTR) {
      continue;
    } else {
      if (n < 0 && error != EAGAIN && error != EWOULDBLOCK) QueueError(s, ErrorForErrno(error));
      return;
    }
  }
}

// Ends the connection: what is still to be sent goes first (for at most a
// second), what the peer sent and nobody took is dropped, so that the peer
// sees an orderly close.
void EndConnection(SimSocket& s) {
  if (s.connection.fd >= 0 && !s.outbox.empty() && s.state != platform::kSocketConnecting) {
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
      Flush(s);
      if (s.outbox.empty() || s.errorPending) break;
      if (std::chrono::steady_clock::now() - start >= std::chrono::seconds(1)) break;
      pollfd p{static_cast<decltype(pollfd::fd)>(s.connection.fd), POLLOUT, 0};
      PollSockets(&p, 1, 50);
    }
  }
  if (s.connection.fd >= 0) {
    char scrap[4096];
    while (::recv(s.connection.fd, scrap, sizeof scrap, kReceiveFlags) > 0) {
    }
  }
  s.connection.Reset();
  s.outbox.clear();
  s.inbox.clear();
  s.played.reset();
}

// The port as the control takes it: a whole number with blanks around it.
// 0 when it is no number, -1 when it is out of range.
long ParsePort(const std::string& text) {
  size_t first = text.find_first_not_of(' ');
  size_t last = text.find_last_not_of(' ');
  if (first == std::string::npos) return 0;
  std::string digits = text.substr(first, last - first + 1);
  long value = 0;
  for (char ch : digits) {
    if (ch < '0' || ch > '9') return 0;
    value = value * 10 + (ch - '0');
    if (value > 65535) return -1;
  }
  return value;
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
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end()) return;
    EndConnection(it->second);
    c.socketTable.erase(it);
  }

  Failure Connect(int socket, const std::string& ansiHost, const std::string& ansiPort) override {
    Context& c = Current();
    const std::string host = FromAnsi(ansiHost), port = FromAnsi(ansiPort);
    if (const Fault* f = c.TakeFault("Connect", host)) return SocketFailure(static_cast<int32_t>(f->lastError));
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end() || it->second.state != platform::kSocketClosed)
      return SocketFailure(kErrBadState);
    SimSocket& s = it->second;
    s.host = host;
    s.port = port;
    s.sent.clear();
    s.received.clear();
    s.inbox.clear();
    s.outbox.clear();
    s.errorPending = false;
    s.state = platform::kSocketConnecting;
    s.transcriptIndex = static_cast<int>(c.sockets.size());
    std::optional<SmtpPeer> peer = c.PlayedSmtpPeer();
    c.sockets.push_back(nlohmann::json{{"host", host},
                                       {"port", port},
                                       {"sent", ""},
                                       {"received", ""},
                                       {"peer", peer ? SmtpPeerJson(*peer) : nlohmann::json("network")},
                                       {"connected", false},
                                       {"error", nullptr}});
    c.socketNotes.emplace_back();

    long number = ParsePort(port);
    if (number <= 0) {
      QueueError(s, number == 0 ? kErrInvalidArg : kErrOutOfRange);
      return {};
    }
    if (peer) {
      // Any server name is the played peer; the Connect event comes with the pump.
      s.played.emplace();
      s.played->peer = *peer;
      return {};
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) {
      QueueError(s, kErrHostNotFound);
      return {};
    }
    sockaddr_in address = *reinterpret_cast<sockaddr_in*>(found->ai_addr);
    ::freeaddrinfo(found);
    address.sin_port = htons(static_cast<uint16_t>(number));

    s.connection.fd = OpenStreamSocket();
    if (s.connection.fd < 0) {
      QueueError(s, ErrorForErrno(SocketError()));
      return {};
    }
    if (::connect(s.connection.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 &&
        !ConnectStarted()) {
      int error = SocketError();
      s.connection.Reset();
      QueueError(s, ErrorForErrno(error));
    }
    // Connected at once or not: the Connect event comes with the pump.
    return {};
  }

  Failure SendData(int socket, const std::string& data) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("SendData", data)) return SocketFailure(static_cast<int32_t>(f->lastError));
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end() ||
        (it->second.state != platform::kSocketConnected && it->second.state != platform::kSocketClosing))
      return SocketFailure(kErrBadState);
    SimSocket& s = it->second;
    TranscriptText(c, s, "sent") += data;
    if (s.errorPending) return {};
    c.socketNotes[s.transcriptIndex].awaiting = true;
    if (s.played) {
      Serve(*s.played, s.host, data);
      return {};
    }
    s.outbox += data;
    Flush(s);
    return {};
  }

  std::string GetData(int socket) override {
    Context& c = Current();
    if (c.TakeFault("GetData", "")) return "";
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end()) return "";
    std::string data;
    data.swap(it->second.inbox);
    return data;
  }

  void Close(int socket) override {
    Context& c = Current();
    if (c.TakeFault("Close", "")) return;
    auto it = c.socketTable.find(socket);
    if (it == c.socketTable.end()) return;
    EndConnection(it->second);
    it->second.state = platform::kSocketClosed;
    it->second.errorPending = false;
  }

  int State(int socket) override {
    Context& c = Current();
    // Asking the state is no work of its own: a loop that only asks it and
    // pumps is waiting.
    bool idle = c.boundaryCalls == c.callsAtLastPump;
    const Fault* f = c.TakeFault("State", "");
    if (idle) c.callsAtLastPump = c.boundaryCalls;
    if (f) return static_cast<int>(f->result);
    auto it = c.socketTable.find(socket);
    return it == c.socketTable.end() ? platform::kSocketClosed : it->second.state;
  }

  std::string LocalHostName() override {
    Context& c = Current();
    if (c.TakeFault("LocalHostName", "")) return "";
    if (c.machine.localHostName) return ToAnsi(*c.machine.localHostName);
    if (c.machine.computerName) return ToAnsi(*c.machine.computerName);
    return "localhost";
  }
};

// One event of one socket, if one is due; true when an event ran. The
// owner's handler may pump again and destroy the socket, so nothing of it is
// touched after the handler is called.
bool PumpOne(Context& c, int id) {
  auto it = c.socketTable.find(id);
  if (it == c.socketTable.end()) return false;
  SimSocket& s = it->second;
  platform::SocketEvents* owner = s.owner;
  if (!s.outbox.empty()) Flush(s);

  if (s.errorPending) {
    s.errorPending = false;
    s.state = platform::kSocketError;
    s.connection.Reset();
    s.played.reset();
    int32_t number = s.errorNumber;
    std::string description = s.errorDescription;
    NoteError(c, s, number, description);
    if (owner) owner->OnError(number, description);
    return true;
  }
  if (s.played) return PumpPlayed(c, s);
  if (s.connection.fd < 0) return false;

  if (s.state == platform::kSocketConnecting) {
    pollfd p{static_cast<decltype(pollfd::fd)>(s.connection.fd), POLLOUT, 0};
    if (PollSockets(&p, 1, 0) <= 0) return false;
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(s.connection.fd, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) != 0)
      error = SocketError();
    if (error == 0) {
      s.state = platform::kSocketConnected;
      NoteConnected(c, s);
      if (owner) owner->OnConnect();
    } else {
      Failure f = SocketFailure(ErrorForErrno(error));
      s.state = platform::kSocketError;
      s.connection.Reset();
      s.outbox.clear();
      NoteError(c, s, f.Number, f.Description);
      if (owner) owner->OnError(f.Number, f.Description);
    }
    return true;
  }

  if (s.state != platform::kSocketConnected) return false;
  char buffer[kReceiveChunk];
  ssize_t n = ::recv(s.connection.fd, buffer, sizeof buffer, kReceiveFlags);
  if (n > 0) {
    s.inbox.append(buffer, static_cast<size_t>(n));
    NoteReceived(c, s, buffer, static_cast<size_t>(n));
    long total = static_cast<long>(s.inbox.size());
    if (owner) owner->OnDataArrival(total);
    return true;
  }
  if (n == 0) {
    // The peer closed its side.
    s.state = platform::kSocketClosing;
    c.socketNotes[s.transcriptIndex].serverClosed = true;
    return true;
  }
  int error = SocketError();
  if (error == EAGAIN || error == EWOULDBLOCK || error == EINTR) return false;
  QueueError(s, ErrorForErrno(error));
  return false;   // the error event comes with the next pump
}

}  // namespace

bool PumpSocketEvents() {
  Context& c = Current();
  if (c.socketTable.empty()) return false;
  int ids[16];
  size_t count = 0;
  for (const auto& entry : c.socketTable) {
    if (count == sizeof ids / sizeof ids[0]) break;
    ids[count++] = entry.first;
  }
  bool happened = false;
  for (size_t i = 0; i < count; ++i) happened = PumpOne(c, ids[i]) || happened;
  return happened;
}

void WaitForSocketEvents(std::chrono::steady_clock::duration limit) {
  Context& c = Current();
  pollfd fds[16];
  unsigned long count = 0;
  for (const auto& [id, s] : c.socketTable) {
    if (s.errorPending || PlayedEventDue(s)) return;
    if (s.connection.fd < 0 || count == sizeof fds / sizeof fds[0]) continue;
    short events = 0;
    if (s.state == platform::kSocketConnecting) events = POLLOUT;
    if (s.state == platform::kSocketConnected) events = POLLIN;
    if (!s.outbox.empty() && s.state != platform::kSocketConnecting) events |= POLLOUT;
    if (events) fds[count++] = pollfd{static_cast<decltype(pollfd::fd)>(s.connection.fd), events, 0};
  }
  if (limit < std::chrono::steady_clock::duration::zero()) limit = std::chrono::steady_clock::duration::zero();
  auto us = std::chrono::duration_cast<std::chrono::microseconds>(limit).count();
  PollSockets(fds, count, static_cast<int>((us + 999) / 1000));
}

platform::Sockets& SocketsService() {
  static SimSockets service;
  return service;
}

}  // namespace sim
