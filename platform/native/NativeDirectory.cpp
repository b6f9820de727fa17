//===- NativeDirectory.cpp - The directory on Windows -----------*- C++ -*-===//
//
// Binding the domain's directory object and querying its print queues.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - No directory server is contacted yet: binding fails the way a directory
//   client fails for a server that does not answer (0x8007203A, "The server
//   is not operational."), and so does the query.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

namespace platform::native {

namespace {

constexpr int32_t kServerNotOperational = -2147016646;  // 0x8007203A
constexpr const char* kServerNotOperationalText = "The server is not operational.";

class NativeDirectory final : public Directory {
 public:
  Failure BindObject(const std::string& path, std::string& adsPath) override {
    adsPath.clear();
    return {kServerNotOperational, kServerNotOperationalText};
  }
  Failure Execute(const std::string& commandText, std::vector<DirectoryRow>& rows) override {
    rows.clear();
    return {kServerNotOperational, kServerNotOperationalText};
  }
};

}  // namespace

Directory& DirectoryService() {
  static NativeDirectory service;
  return service;
}

}  // namespace platform::native
