//===- NativeSockets.cpp - Sockets on Windows -------------------*- C++ -*-===//
//
// The socket control of the SMTP session.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - No connection is made yet: Connect and SendData fail with the run-time
//   error of an object that does not support the action, so that the
//   service set is complete and a session that is asked for ends in its own
//   error path instead of waiting.
// - Events would be delivered only inside the pump; none is raised here.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>

#include <set>

namespace platform::native {

namespace {

constexpr int32_t kErrActionNotSupported = 445;
constexpr const char* kActionNotSupportedText = "Object doesn't support this action";

class NativeSockets final : public Sockets {
 public:
  int CreateSocket(SocketEvents* owner) override {
    const int id = next_++;
    sockets_.insert(id);
    return id;
  }
  void DestroySocket(int socket) override { sockets_.erase(socket); }
  Failure Connect(int socket, const std::string& host, const std::string& port) override {
    return {kErrActionNotSupported, kActionNotSupportedText};
  }
  Failure SendData(int socket, const std::string& data) override {
    return {kErrActionNotSupported, kActionNotSupportedText};
  }
  std::string GetData(int socket) override { return {}; }
  void Close(int socket) override {}
  int State(int socket) override { return kSocketClosed; }
  std::string LocalHostName() override {
    char buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof buffer;
    if (!::GetComputerNameA(buffer, &size)) return {};
    return std::string(buffer, size);
  }

 private:
  int next_ = 1;
  std::set<int> sockets_;
};

}  // namespace

Sockets& SocketsService() {
  static NativeSockets service;
  return service;
}

}  // namespace platform::native
