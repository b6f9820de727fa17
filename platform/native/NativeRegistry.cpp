//===- NativeRegistry.cpp - The registry on Windows -------------*- C++ -*-===//
//
// The Reg* calls of the event source, and the engine's per-user settings
// below HKEY_CURRENT_USER\<kSettingsRoot>\<application>\<section>.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Each Win32-named method calls SetLastError(0) and then the real call with
//   the same arguments; its result is the call's own error code.
// - A setting is a REG_SZ value. Reading one that is absent, or of another
//   type, gives the default; a setting that cannot be saved is a Failure,
//   never an exception.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

#include <windows.h>

#include <vector>

namespace platform::native {

namespace {

std::string SettingsKey(const std::string& application, const std::string& section) {
  return std::string(kSettingsRoot) + "\\" + application + "\\" + section;
}

class NativeRegistry final : public Registry {
 public:
  LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    ::SetLastError(0);
    return ::RegOpenKeyA(key, subKey, result);
  }
  LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    ::SetLastError(0);
    return ::RegCreateKeyA(key, subKey, result);
  }
  LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataSize) override {
    ::SetLastError(0);
    return ::RegQueryValueExA(key, valueName, reserved, type, data, dataSize);
  }
  LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                      DWORD dataSize) override {
    ::SetLastError(0);
    return ::RegSetValueExA(key, valueName, reserved, type, data, dataSize);
  }
  LONG RegCloseKey(HKEY key) override {
    ::SetLastError(0);
    return ::RegCloseKey(key);
  }
  LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD reserved,
                     LPSTR className, LPDWORD classSize, PFILETIME lastWriteTime) override {
    ::SetLastError(0);
    return ::RegEnumKeyExA(key, index, name, nameSize, reserved, className, classSize,
                           lastWriteTime);
  }
  LONG RegEnumValueA(HKEY key, DWORD index, LPSTR valueName, LPDWORD valueNameSize,
                     LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataSize) override {
    ::SetLastError(0);
    return ::RegEnumValueA(key, index, valueName, valueNameSize, reserved, type, data, dataSize);
  }

  std::string GetSetting(const std::string& application, const std::string& section,
                         const std::string& key, const std::string& defaultValue) override {
    HKEY handle = nullptr;
    if (::RegOpenKeyExA(HKEY_CURRENT_USER, SettingsKey(application, section).c_str(), 0,
                        KEY_QUERY_VALUE, &handle) != ERROR_SUCCESS)
      return defaultValue;
    std::string result = defaultValue;
    DWORD type = 0, size = 0;
    if (::RegQueryValueExA(handle, key.c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS &&
        type == REG_SZ) {
      std::vector<BYTE> data(size + 1, 0);
      if (::RegQueryValueExA(handle, key.c_str(), nullptr, &type, data.data(), &size) ==
              ERROR_SUCCESS &&
          type == REG_SZ) {
        data.resize(size);
        result = CutText(data);
      }
    }
    ::RegCloseKey(handle);
    return result;
  }

  Failure SaveSetting(const std::string& application, const std::string& section,
                      const std::string& key, const std::string& value) override {
    HKEY handle = nullptr;
    LONG status = ::RegCreateKeyExA(HKEY_CURRENT_USER, SettingsKey(application, section).c_str(), 0,
                                    nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr,
                                    &handle, nullptr);
    if (status == ERROR_SUCCESS) {
      status = ::RegSetValueExA(handle, key.c_str(), 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(value.c_str()),
                                static_cast<DWORD>(value.size() + 1));
      ::RegCloseKey(handle);
    }
    if (status == ERROR_SUCCESS) return {};
    return {5, "Invalid procedure call or argument"};
  }

 private:
  // A REG_SZ value's bytes up to its first NUL.
  static std::string CutText(const std::vector<BYTE>& data) {
    std::string text(data.begin(), data.end());
    size_t nul = text.find('\0');
    return nul == std::string::npos ? text : text.substr(0, nul);
  }
};

}  // namespace

Registry& RegistryService() {
  static NativeRegistry service;
  return service;
}

}  // namespace platform::native
