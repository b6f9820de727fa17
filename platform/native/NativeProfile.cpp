//===- NativeProfile.cpp - Profile strings on Windows -----------*- C++ -*-===//
//
// INI files and the per-user profile, read and written by the system's own
// profile functions.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Each method calls SetLastError(0) and then the real call with the same
//   arguments; GetLastError() afterwards is that call's own. The engine
//   judges an INI key by that last error.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>

namespace platform::native {

namespace {

class NativeProfile final : public Profile {
 public:
  DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                                 DWORD size, LPCSTR fileName) override {
    ::SetLastError(0);
    return ::GetPrivateProfileStringA(section, key, defaultValue, buffer, size, fileName);
  }
  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                          DWORD size) override {
    ::SetLastError(0);
    return ::GetProfileStringA(section, key, defaultValue, buffer, size);
  }
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    ::SetLastError(0);
    return ::WriteProfileStringA(section, key, value);
  }
};

}  // namespace

Profile& ProfileService() {
  static NativeProfile service;
  return service;
}

}  // namespace platform::native
