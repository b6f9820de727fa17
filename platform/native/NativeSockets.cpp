//===- NativeSockets.cpp - Sockets on Windows -------------------*- C++ -*-===//
//
// The socket control of the SMTP session: non-blocking TCP over Winsock.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Winsock is loaded at run time (ws2_32.dll, else wsock32.dll) and started
//   once, at the first use; a system without it still starts the engine, and
//   a connection then fails with an Error event.
// - Each socket reports to the engine's message window through
//   WSAAsyncSelect. The window only queues what it is told; the events
//   (Connect, DataArrival, Error) reach their owner in DeliverSocketEvents(),
//   which only the pump calls. The work behind an event (reading the data,
//   the new state) is done when it is delivered, so that what the owner sees
//   never runs ahead of the events it has had.
// - States and error numbers are those of the socket control: 0 closed,
//   6 connecting, 7 connected, 8 closing (the peer has closed), 9 error.
//   A failure of Connect itself (a host that cannot be found, a port that is
//   no number, a refused connection) is an Error event, never a return value;
//   Connect and SendData return a failure only when the socket is in the
//   wrong state for them.
// - Text goes on the wire byte for byte, as single-byte characters. SendData
//   hands everything to the system: what the system cannot take at once is
//   kept and sent as the socket becomes writable again. Close sends what is
//   left (for at most a second) and ends the connection in order.
// - An owner may close or destroy its socket inside its own handler; nothing
//   here touches a socket after a handler without looking it up again.
// - Every call but State tells the pump that the engine did something
//   (NoteActivity): a loop that only asks the state and pumps is waiting.
//
//===----------------------------------------------------------------------===//

#include <winsock2.h>
#include <ws2tcpip.h>

#include "platform/native/NativeLibraries.h"
#include "platform/native/NativeServices.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <type_traits>

namespace platform::native {

namespace {

constexpr int32_t kErrBadState = 40006;
constexpr int32_t kErrInvalidArg = 40014;
constexpr int32_t kErrOutOfRange = 40021;
constexpr int32_t kErrNotInitialised = 10093;

// The socket control's own words for the errors it reports.
std::string SocketErrorText(int32_t number) {
  switch (number) {
    case 10004: return "The operation is canceled";
    case 10013: return "The requested address is a broadcast address, but flag is not set";
    case 10014: return "Invalid argument";
    case 10022: return "Socket not bound, invalid address or listen is not invoked prior to accept";
    case 10024: return "No more file descriptors are available, accept queue is empty";
    case 10035: return "Socket is non-blocking and the specified operation will block";
    case 10036: return "A blocking Winsock operation is in progress";
    case 10037: return "The operation is completed. No blocking operation is in progress";
    case 10038: return "The descriptor is not a socket";
    case 10039: return "Destination address is required";
    case 10040: return "The datagram is too large to fit into the buffer and is truncated";
    case 10041: return "The specified port is the wrong type for this socket";
    case 10042: return "Option unknown, or unsupported";
    case 10043: return "The specified port is not supported";
    case 10044: return "Socket type not supported in this address family";
    case 10045: return "Socket is not a type that supports connection oriented service";
    case 10047: return "Address Family is not supported";
    case 10048: return "Address in use";
    case 10049: return "Address is not available from the local machine";
    case 10050: return "Network subsystem failed";
    case 10051: return "The network cannot be reached from this host at this time";
    case 10052: return "Connection has timed out when SO_KEEPALIVE is set";
    case 10053: return "Connection is aborted due to timeout or other failure";
    case 10054: return "The connection is reset by remote side";
    case 10055: return "No buffer space is available";
    case 10056: return "Socket is already connected";
    case 10057: return "Socket is not connected";
    case 10058: return "Socket has been shut down";
    case 10060: return "The attempt to connect timed out";
    case 10061: return "Connection is forcefully rejected";
    case 10093: return "WinsockInit should be called first";
    case 11001: return "Authoritative answer: Host not found";
    case 11002: return "Non-Authoritative answer: Host not found";
    case 11003: return "Non-recoverable errors";
    case 11004: return "Valid name, no data record of requested type";
    case 40006: return "Wrong protocol or connection state for the requested transaction or request";
    case 40014:
      return "The argument passed to a function was not in the correct format or in the specified "
             "range";
    case 40021: return "Argument is out of range";
    default: break;
  }
  char buffer[512] = {};
  const DWORD length =
      ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(number), 0, buffer, sizeof buffer, nullptr);
  std::string text(buffer, length);
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n' || text.back() == ' ' ||
                           text.back() == '.'))
    text.pop_back();
  return text.empty() ? "Winsock error " + std::to_string(number) : text;
}

// The Winsock calls, looked up at run time.
struct Winsock {
  typedef int(WSAAPI* StartupFn)(WORD, LPWSADATA);
  typedef SOCKET(WSAAPI* SocketFn)(int, int, int);
  typedef int(WSAAPI* ConnectFn)(SOCKET, const sockaddr*, int);
  typedef int(WSAAPI* SendFn)(SOCKET, const char*, int, int);
  typedef int(WSAAPI* RecvFn)(SOCKET, char*, int, int);
  typedef int(WSAAPI* CloseFn)(SOCKET);
  typedef int(WSAAPI* AsyncSelectFn)(SOCKET, HWND, u_int, long);
  typedef int(WSAAPI* LastErrorFn)();
  typedef int(WSAAPI* HostNameFn)(char*, int);
  typedef hostent*(WSAAPI* HostByNameFn)(const char*);
  typedef unsigned long(WSAAPI* InetAddrFn)(const char*);
  typedef int(WSAAPI* GetAddrInfoFn)(const char*, const char*, const addrinfo*, addrinfo**);
  typedef void(WSAAPI* FreeAddrInfoFn)(addrinfo*);

  StartupFn pStartup = nullptr;
  SocketFn pSocket = nullptr;
  ConnectFn pConnect = nullptr;
  SendFn pSend = nullptr;
  RecvFn pRecv = nullptr;
  CloseFn pClose = nullptr;
  AsyncSelectFn pAsyncSelect = nullptr;
  LastErrorFn pLastError = nullptr;
  HostNameFn pHostName = nullptr;
  HostByNameFn pHostByName = nullptr;
  InetAddrFn pInetAddr = nullptr;
  GetAddrInfoFn pGetAddrInfo = nullptr;  // Windows XP on
  FreeAddrInfoFn pFreeAddrInfo = nullptr;

  bool tried = false;
  int32_t startError = 0;  // 0 once started

  // Loads and starts Winsock once; 0, or the error every connection gets.
  int32_t Start() {
    if (tried) return startError;
    tried = true;
    startError = kErrNotInitialised;
    WORD version = MAKEWORD(2, 2);
    HMODULE module = LoadSystemLibrary("ws2_32.dll");
    if (!module) {
      module = LoadSystemLibrary("wsock32.dll");
      version = MAKEWORD(1, 1);
    }
    if (!module) return startError;
    auto find = [module](auto& function, const char* name) {
      function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(
          reinterpret_cast<void*>(::GetProcAddress(module, name)));
      return function != nullptr;
    };
    const bool complete = find(pStartup, "WSAStartup") && find(pSocket, "socket") &&
                          find(pConnect, "connect") && find(pSend, "send") &&
                          find(pRecv, "recv") && find(pClose, "closesocket") &&
                          find(pAsyncSelect, "WSAAsyncSelect") &&
                          find(pLastError, "WSAGetLastError") &&
                          find(pHostName, "gethostname") && find(pHostByName, "gethostbyname") &&
                          find(pInetAddr, "inet_addr");
    if (!complete) return startError;
    if (!find(pGetAddrInfo, "getaddrinfo") || !find(pFreeAddrInfo, "freeaddrinfo")) {
      pGetAddrInfo = nullptr;
      pFreeAddrInfo = nullptr;
    }
    WSADATA data;
    const int result = pStartup(version, &data);
    if (result != 0) return startError = result;
    return startError = 0;
  }
};

Winsock& Ws() {
  static Winsock winsock;
  return winsock;
}

// The port as the control takes it: a whole number, blanks around it
// allowed. 0 when it is no number (or 0), -1 when it is above 65535.
long PortNumber(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return 0;
  const size_t last = text.find_last_not_of(' ');
  long value = 0;
  for (size_t i = first; i <= last; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return 0;
    value = value * 10 + (c - '0');
    if (value > 65535) return -1;
  }
  return value;
}

unsigned short NetworkOrder(unsigned short port) {
  return static_cast<unsigned short>((port >> 8) | (port << 8));
}

// The IPv4 address of a host (a name or dotted digits), as the control's
// connection uses it; 0 or a Winsock error number.
int32_t ResolveHost(const std::string& host, unsigned short port, sockaddr_in& address) {
  Winsock& ws = Ws();
  address = {};
  address.sin_family = AF_INET;
  address.sin_port = NetworkOrder(port);
  if (ws.pGetAddrInfo) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(port);
    const int result = ws.pGetAddrInfo(host.c_str(), service.c_str(), &hints, &found);
    if (result != 0) return result;
    int32_t error = WSAHOST_NOT_FOUND;
    for (addrinfo* entry = found; entry; entry = entry->ai_next) {
      if (entry->ai_family == AF_INET && entry->ai_addrlen >= sizeof(sockaddr_in)) {
        address.sin_addr = reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr;
        error = 0;
        break;
      }
    }
    ws.pFreeAddrInfo(found);
    return error;
  }
  const unsigned long numeric = ws.pInetAddr(host.c_str());
  if (numeric != INADDR_NONE && !host.empty()) {
    address.sin_addr.s_addr = numeric;
    return 0;
  }
  hostent* entry = ws.pHostByName(host.c_str());
  if (!entry || entry->h_addrtype != AF_INET || !entry->h_addr_list || !entry->h_addr_list[0])
    return entry ? WSANO_DATA : ws.pLastError();
  memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof address.sin_addr);
  return 0;
}

// What the system reported for a socket, kept until the pump hands it on.
enum class EventKind { kConnect, kRead, kWrite, kClose, kFailure };

struct QueuedEvent {
  int socket = 0;
  EventKind kind = EventKind::kRead;
  int32_t error = 0;
};

struct SocketSlot {
  SocketEvents* owner = nullptr;
  SOCKET handle = INVALID_SOCKET;
  int state = kSocketClosed;
  std::string received;  // arrived, not yet taken by GetData
  std::string unsent;    // given to SendData, not yet taken by the system
};

class NativeSockets final : public Sockets {
 public:
  int CreateSocket(SocketEvents* owner) override {
    NoteActivity();
    const int id = next_++;
    sockets_[id].owner = owner;
    return id;
  }

  void DestroySocket(int socket) override {
    NoteActivity();
    Close(socket);
    sockets_.erase(socket);
  }

  Failure Connect(int socket, const std::string& host, const std::string& port) override {
    NoteActivity();
    SocketSlot* slot = Find(socket);
    if (!slot || slot->state != kSocketClosed)
      return {kErrBadState, SocketErrorText(kErrBadState)};
    slot->received.clear();
    slot->unsent.clear();
    slot->state = kSocketConnecting;

    if (const int32_t error = Ws().Start()) return Fail(socket, error);
    const long portNumber = PortNumber(port);
    if (portNumber <= 0) return Fail(socket, portNumber == 0 ? kErrInvalidArg : kErrOutOfRange);
    sockaddr_in address;
    if (const int32_t error =
            ResolveHost(host, static_cast<unsigned short>(portNumber), address))
      return Fail(socket, error);

    Winsock& ws = Ws();
    HWND window = MessageWindow();
    SOCKET handle = ws.pSocket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (handle == INVALID_SOCKET) return Fail(socket, ws.pLastError());
    // Non-blocking from here on; the outcome comes as FD_CONNECT.
    if (!window ||
        ws.pAsyncSelect(handle, window, kSocketMessage, FD_CONNECT | FD_READ | FD_WRITE | FD_CLOSE) ==
            SOCKET_ERROR) {
      const int32_t error = window ? ws.pLastError() : kErrNotInitialised;
      ws.pClose(handle);
      return Fail(socket, error);
    }
    slot->handle = handle;
    if (ws.pConnect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
        SOCKET_ERROR) {
      const int32_t error = ws.pLastError();
      if (error != WSAEWOULDBLOCK) {
        CloseHandleOf(*slot);
        return Fail(socket, error);
      }
    }
    return {};
  }

  // Also once the peer has closed its side: the connection still carries
  // what goes the other way.
  Failure SendData(int socket, const std::string& data) override {
    NoteActivity();
    SocketSlot* slot = Find(socket);
    if (!slot || (slot->state != kSocketConnected && slot->state != kSocketClosing))
      return {kErrBadState, SocketErrorText(kErrBadState)};
    slot->unsent += data;
    Flush(*slot);
    return {};
  }

  std::string GetData(int socket) override {
    NoteActivity();
    SocketSlot* slot = Find(socket);
    if (!slot) return {};
    std::string data;
    data.swap(slot->received);
    return data;
  }

  void Close(int socket) override {
    NoteActivity();
    SocketSlot* slot = Find(socket);
    if (!slot) return;
    CloseHandleOf(*slot);
    slot->state = kSocketClosed;
    slot->received.clear();
    slot->unsent.clear();
    // Whatever the system still had to say about this connection is void.
    for (QueuedEvent& event : queue_)
      if (event.socket == socket) event.socket = 0;
  }

  int State(int socket) override {
    SocketSlot* slot = Find(socket);
    return slot ? slot->state : kSocketClosed;
  }

  std::string LocalHostName() override {
    NoteActivity();
    if (Ws().Start() == 0) {
      char buffer[256] = {};
      if (Ws().pHostName(buffer, sizeof buffer - 1) == 0) return buffer;
    }
    char buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof buffer;
    if (!::GetComputerNameA(buffer, &size)) return {};
    return std::string(buffer, size);
  }

  // A message of the message window: one network event of one socket.
  void Notify(WPARAM handle, LPARAM message) {
    const int socket = FindByHandle(static_cast<SOCKET>(handle));
    if (!socket) return;
    const int32_t error = WSAGETSELECTERROR(message);
    switch (WSAGETSELECTEVENT(message)) {
      case FD_CONNECT: queue_.push_back({socket, EventKind::kConnect, error}); break;
      case FD_READ: queue_.push_back({socket, EventKind::kRead, error}); break;
      case FD_WRITE: queue_.push_back({socket, EventKind::kWrite, error}); break;
      case FD_CLOSE: queue_.push_back({socket, EventKind::kClose, error}); break;
      default: break;
    }
  }

  bool Pending() const { return !queue_.empty(); }

  // Hands the queued events on, oldest first, each to the owner of its
  // socket. Handlers may pump again; each event is taken off the queue before
  // its handler runs.
  bool Deliver() {
    bool delivered = false;
    while (!queue_.empty()) {
      const QueuedEvent event = queue_.front();
      queue_.pop_front();
      if (event.socket) delivered |= Run(event);
    }
    return delivered;
  }

 private:
  SocketSlot* Find(int socket) {
    auto found = sockets_.find(socket);
    return found == sockets_.end() ? nullptr : &found->second;
  }

  int FindByHandle(SOCKET handle) {
    for (auto& [id, slot] : sockets_)
      if (slot.handle == handle) return id;
    return 0;
  }

  // A connection that failed before it could start: the Error event at the
  // next pump, which puts the socket in state 9.
  Failure Fail(int socket, int32_t error) {
    queue_.push_back({socket, EventKind::kFailure, error});
    return {};
  }

  // Ends the connection so that the peer sees an orderly close: what is
  // still to be sent goes first (for at most a second), and what arrived and
  // nobody took is read and dropped, since the system answers a close over
  // unread data with a reset.
  void CloseHandleOf(SocketSlot& slot) {
    if (slot.handle == INVALID_SOCKET) return;
    Winsock& ws = Ws();
    ws.pAsyncSelect(slot.handle, MessageWindow(), 0, 0);
    if (!slot.unsent.empty() && slot.state != kSocketConnecting) {
      const DWORD start = ::GetTickCount();
      for (;;) {
        Flush(slot);
        if (slot.unsent.empty() || ::GetTickCount() - start >= 1000) break;
        if (ws.pLastError() != WSAEWOULDBLOCK) break;
        ::Sleep(10);
      }
    }
    char scrap[4096];
    while (ws.pRecv(slot.handle, scrap, sizeof scrap, 0) > 0) {
    }
    ws.pClose(slot.handle);
    slot.handle = INVALID_SOCKET;
    slot.unsent.clear();
  }

  // Gives the system as much of the unsent text as it takes now.
  void Flush(SocketSlot& slot) {
    Winsock& ws = Ws();
    while (!slot.unsent.empty() && slot.handle != INVALID_SOCKET) {
      const int chunk = static_cast<int>(std::min<size_t>(slot.unsent.size(), 1 << 20));
      const int sent = ws.pSend(slot.handle, slot.unsent.data(), chunk, 0);
      if (sent == SOCKET_ERROR) return;  // later, on FD_WRITE; or FD_CLOSE tells
      slot.unsent.erase(0, static_cast<size_t>(sent));
    }
  }

  // Reads what has arrived; true when something did.
  bool Drain(SocketSlot& slot) {
    Winsock& ws = Ws();
    bool any = false;
    char buffer[8192];
    while (slot.handle != INVALID_SOCKET) {
      const int got = ws.pRecv(slot.handle, buffer, sizeof buffer, 0);
      if (got <= 0) break;
      slot.received.append(buffer, static_cast<size_t>(got));
      any = true;
    }
    return any;
  }

  void RaiseError(int socket, int32_t error) {
    SocketSlot* slot = Find(socket);
    if (!slot) return;
    slot->state = kSocketError;
    if (slot->owner) slot->owner->OnError(error, SocketErrorText(error));
  }

  void RaiseDataArrival(int socket) {
    SocketSlot* slot = Find(socket);
    if (slot && slot->owner) slot->owner->OnDataArrival(static_cast<long>(slot->received.size()));
  }

  bool Run(const QueuedEvent& event) {
    SocketSlot* slot = Find(event.socket);
    if (!slot) return false;
    switch (event.kind) {
      case EventKind::kFailure:
        RaiseError(event.socket, event.error);
        return true;
      case EventKind::kConnect:
        if (slot->state != kSocketConnecting) return false;
        if (event.error) {
          CloseHandleOf(*slot);
          RaiseError(event.socket, event.error);
          return true;
        }
        slot->state = kSocketConnected;
        if (slot->owner) slot->owner->OnConnect();
        return true;
      case EventKind::kWrite:
        Flush(*slot);
        return false;
      case EventKind::kRead:
        if (!Drain(*slot)) return false;
        RaiseDataArrival(event.socket);
        return true;
      case EventKind::kClose: {
        // What the peer sent before it went comes first.
        const bool data = Drain(*slot);
        if (data) RaiseDataArrival(event.socket);
        slot = Find(event.socket);
        if (!slot || slot->handle == INVALID_SOCKET) return data;
        if (event.error) {
          CloseHandleOf(*slot);
          RaiseError(event.socket, event.error);
          return true;
        }
        if (slot->state == kSocketConnected) slot->state = kSocketClosing;
        return data;
      }
    }
    return false;
  }

  int next_ = 1;
  std::map<int, SocketSlot> sockets_;
  std::deque<QueuedEvent> queue_;
};

NativeSockets& TheSockets() {
  static NativeSockets service;
  return service;
}

}  // namespace

Sockets& SocketsService() { return TheSockets(); }

void QueueSocketMessage(WPARAM socket, LPARAM message) { TheSockets().Notify(socket, message); }

bool SocketEventsPending() { return TheSockets().Pending(); }

bool DeliverSocketEvents() { return TheSockets().Deliver(); }

}  // namespace platform::native
