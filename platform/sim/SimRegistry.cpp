// The registry of the simulated client, and the per-user settings kept in it.
// Names and text values are machine text; the A-calls give and take them in
// the ANSI code page.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

const char* RootName(HKEY key) {
  if (key == HKEY_CLASSES_ROOT) return "HKEY_CLASSES_ROOT";
  if (key == HKEY_CURRENT_USER) return "HKEY_CURRENT_USER";
  if (key == HKEY_LOCAL_MACHINE) return "HKEY_LOCAL_MACHINE";
  if (key == HKEY_USERS) return "HKEY_USERS";
  return nullptr;
}

// The path of an open key (a root or a handle); empty when the handle is
// not open.
std::string KeyPath(const Context& c, HKEY key) {
  if (const char* root = RootName(key)) return root;
  auto it = c.registryKeys.find(reinterpret_cast<uintptr_t>(key));
  return it == c.registryKeys.end() ? std::string() : it->second;
}

// A sub-key path below parent, its names kept as given, empty names dropped.
std::string ChildPath(const std::string& parent, const std::string& subKey) {
  std::string path = parent;
  std::string name;
  for (char ch : subKey + "\\") {
    if (ch == '\\') {
      if (!name.empty()) path += "\\" + name;
      name.clear();
    } else {
      name += ch;
    }
  }
  return path;
}

bool IsText(uint32_t type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// The bytes of a value as the A-calls see them: text types in the ANSI code
// page (the registry keeps them as machine text), others as they stand.
std::string AnsiData(const RegistryValue& value) {
  std::string data(value.data.begin(), value.data.end());
  return IsText(value.type) ? ToAnsi(data) : data;
}

using KeyEntry = std::pair<std::string, std::vector<std::pair<std::string, RegistryValue>>>;

KeyEntry* FindKey(Context& c, const std::string& path) {
  for (KeyEntry& entry : c.machine.registry)
    if (SameNoCase(entry.first, path)) return &entry;
  return nullptr;
}

// A key exists when it is listed, is a root, or lies above a listed key.
bool KeyExists(const Context& c, const std::string& path) {
  if (path.find('\\') == std::string::npos) return true;   // a root
  std::string upper = UpperAscii(path);
  for (const KeyEntry& entry : c.machine.registry) {
    std::string e = UpperAscii(entry.first);
    if (e == upper || e.compare(0, upper.size() + 1, upper + "\\") == 0) return true;
  }
  return false;
}

KeyEntry& CreateKey(Context& c, const std::string& path) {
  if (KeyEntry* entry = FindKey(c, path)) return *entry;
  c.machine.registry.emplace_back(path, std::vector<std::pair<std::string, RegistryValue>>{});
  return c.machine.registry.back();
}

// The names of the sub-keys of a key, each once, ordered by name as the
// registry orders them (case-blind).
std::vector<std::string> SubKeyNames(const Context& c, const std::string& path) {
  const std::string prefix = UpperAscii(path) + "\\";
  std::vector<std::string> names;
  for (const KeyEntry& entry : c.machine.registry) {
    if (UpperAscii(entry.first).compare(0, prefix.size(), prefix) != 0) continue;
    std::string name = entry.first.substr(prefix.size());
    name = name.substr(0, name.find('\\'));
    bool known = false;
    for (const std::string& n : names) known = known || SameNoCase(n, name);
    if (!known && !name.empty()) names.push_back(name);
  }
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    return UpperAscii(a) < UpperAscii(b);
  });
  return names;
}

HKEY NewHandle(Context& c, const std::string& path) {
  uintptr_t handle = c.nextHandle++;
  c.registryKeys[handle] = path;
  return reinterpret_cast<HKEY>(handle);
}

// A standard user may read below HKEY_LOCAL_MACHINE but neither create keys
// nor set values there.
bool WriteDenied(const Context& c, const std::string& path) {
  static const std::string kMachine = "HKEY_LOCAL_MACHINE";
  return c.StandardUser() && SameNoCase(path.substr(0, kMachine.size()), kMachine) &&
         (path.size() == kMachine.size() || path[kMachine.size()] == '\\');
}

std::string SettingsPath(const std::string& application, const std::string& section) {
  return ChildPath(std::string("HKEY_CURRENT_USER\\") + platform::kSettingsRoot,
                   application + "\\" + section);
}

class SimRegistry : public platform::Registry {
 public:
  LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    Context& c = Current();
    c.lastError = 0;
    std::string parent = KeyPath(c, key);
    std::string path = parent.empty() ? "" : ChildPath(parent, ArgText(subKey));
    if (const Fault* f = c.TakeFault("RegOpenKeyA", std::vector<std::string>{path, ArgText(subKey)}))
      return static_cast<LONG>(f->result);
    if (parent.empty()) return ERROR_INVALID_HANDLE;
    if (!result) return ERROR_INVALID_PARAMETER;
    if (!KeyExists(c, path)) return ERROR_FILE_NOT_FOUND;
    *result = NewHandle(c, path);
    return ERROR_SUCCESS;
  }

  LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) override {
    Context& c = Current();
    c.lastError = 0;
    std::string parent = KeyPath(c, key);
    std::string path = parent.empty() ? "" : ChildPath(parent, ArgText(subKey));
    if (const Fault* f = c.TakeFault("RegCreateKeyA", std::vector<std::string>{path, ArgText(subKey)}))
      return static_cast<LONG>(f->result);
    if (parent.empty()) return ERROR_INVALID_HANDLE;
    if (!result) return ERROR_INVALID_PARAMETER;
    // RegCreateKeyA asks for the most it may have: an existing key opens
    // for reading, a new one cannot be made.
    if (!KeyExists(c, path) && WriteDenied(c, path)) return ERROR_ACCESS_DENIED;
    if (path.find('\\') != std::string::npos && !FindKey(c, path)) CreateKey(c, path);
    *result = NewHandle(c, path);
    return ERROR_SUCCESS;
  }

  LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataSize) override {
    Context& c = Current();
    c.lastError = 0;
    std::string path = KeyPath(c, key);
    if (const Fault* f =
            c.TakeFault("RegQueryValueExA", std::vector<std::string>{path, ArgText(valueName)}))
      return static_cast<LONG>(f->result);
    if (path.empty()) return ERROR_INVALID_HANDLE;
    if (data && !dataSize) return ERROR_INVALID_PARAMETER;
    KeyEntry* entry = FindKey(c, path);
    const RegistryValue* found = nullptr;
    const std::string wanted = ArgText(valueName);
    if (entry)
      for (const auto& [name, value] : entry->second)
        if (SameNoCase(name, wanted)) found = &value;
    if (!found) return ERROR_FILE_NOT_FOUND;
    if (type) *type = found->type;
    const std::string bytes = AnsiData(*found);
    DWORD size = static_cast<DWORD>(bytes.size());
    if (!data) {
      if (dataSize) *dataSize = size;
      return ERROR_SUCCESS;
    }
    if (*dataSize < size) {
      *dataSize = size;
      return ERROR_MORE_DATA;
    }
    if (size) std::memcpy(data, bytes.data(), size);
    *dataSize = size;
    return ERROR_SUCCESS;
  }

  LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                      DWORD dataSize) override {
    Context& c = Current();
    c.lastError = 0;
    std::string path = KeyPath(c, key);
    if (const Fault* f =
            c.TakeFault("RegSetValueExA", std::vector<std::string>{path, ArgText(valueName)}))
      return static_cast<LONG>(f->result);
    if (path.empty()) return ERROR_INVALID_HANDLE;
    if (WriteDenied(c, path)) return ERROR_ACCESS_DENIED;
    if (!data && dataSize) return ERROR_INVALID_PARAMETER;
    RegistryValue value;
    value.type = type;
    if (dataSize) {
      std::string bytes(reinterpret_cast<const char*>(data), dataSize);
      if (IsText(type)) bytes = FromAnsi(bytes);
      value.data.assign(bytes.begin(), bytes.end());
    }
    SetValue(c, path, ArgText(valueName), value);
    return ERROR_SUCCESS;
  }

  LONG RegCloseKey(HKEY key) override {
    Context& c = Current();
    c.lastError = 0;
    std::string path = KeyPath(c, key);
    if (const Fault* f = c.TakeFault("RegCloseKey", path)) return static_cast<LONG>(f->result);
    if (RootName(key)) return ERROR_SUCCESS;
    if (c.registryKeys.erase(reinterpret_cast<uintptr_t>(key)) == 0) return ERROR_INVALID_HANDLE;
    return ERROR_SUCCESS;
  }

  LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD reserved,
                     LPSTR className, LPDWORD classSize, PFILETIME lastWriteTime) override {
    Context& c = Current();
    c.lastError = 0;
    std::string path = KeyPath(c, key);
    if (const Fault* f = c.TakeFault("RegEnumKeyExA", path)) return static_cast<LONG>(f->result);
    if (reserved) return ERROR_INVALID_PARAMETER;
    if (path.empty()) return ERROR_INVALID_HANDLE;
    if (!name || !nameSize) return ERROR_INVALID_PARAMETER;   // Windows faults here; refuse instead
    std::vector<std::string> names = SubKeyNames(c, path);
    if (index >= names.size()) return ERROR_NO_MORE_ITEMS;
    const std::string found = ToAnsi(names[index]);
    if (lastWriteTime) *lastWriteTime = FILETIME{};
    if (found.size() >= *nameSize) return ERROR_MORE_DATA;
    CopyWithNul(name, found);
    *nameSize = static_cast<DWORD>(found.size());
    // Keys of the simulated client have no class.
    if (classSize) {
      if (className && *classSize) className[0] = '\0';
      *classSize = 0;
    }
    return ERROR_SUCCESS;
  }

  LONG RegEnumValueA(HKEY key, DWORD index, LPSTR valueName, LPDWORD valueNameSize,
                     LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataSize) override {
    Context& c = Current();
    c.lastError = 0;
    std::string path = KeyPath(c, key);
    if (const Fault* f = c.TakeFault("RegEnumValueA", path)) return static_cast<LONG>(f->result);
    if ((data && !dataSize) || reserved || !valueName || !valueNameSize)
      return ERROR_INVALID_PARAMETER;
    if (path.empty()) return ERROR_INVALID_HANDLE;
    const KeyEntry* entry = FindKey(c, path);
    if (!entry || index >= entry->second.size()) return ERROR_NO_MORE_ITEMS;
    const RegistryValue& value = entry->second[index].second;
    const std::string name = ToAnsi(entry->second[index].first);
    const std::string bytes = AnsiData(value);
    const DWORD size = static_cast<DWORD>(bytes.size());
    LONG status = ERROR_SUCCESS;
    if (data) {
      if (size > *dataSize) status = ERROR_MORE_DATA;
      else if (size) std::memcpy(data, bytes.data(), size);
    }
    if (status == ERROR_SUCCESS) {
      // A name too long for the buffer is cut to it, and the call says so.
      if (name.size() >= *valueNameSize) {
        status = ERROR_MORE_DATA;
        if (*valueNameSize) CopyWithNul(valueName, name.substr(0, *valueNameSize - 1));
      } else {
        CopyWithNul(valueName, name);
        *valueNameSize = static_cast<DWORD>(name.size());
      }
    }
    if (type) *type = value.type;
    if (dataSize) *dataSize = size;
    return status;
  }

  std::string GetSetting(const std::string& application, const std::string& section,
                         const std::string& key, const std::string& defaultValue) override {
    Context& c = Current();
    std::string path = SettingsPath(FromAnsi(application), FromAnsi(section));
    if (c.TakeFault("GetSetting", std::vector<std::string>{path, FromAnsi(application)})) return defaultValue;
    KeyEntry* entry = FindKey(c, path);
    if (!entry) return defaultValue;
    const std::string wanted = FromAnsi(key);
    for (const auto& [name, value] : entry->second) {
      if (!SameNoCase(name, wanted)) continue;
      if (value.type != REG_SZ && value.type != REG_EXPAND_SZ) return defaultValue;
      std::string text = AnsiData(value);
      return text.substr(0, text.find('\0'));
    }
    return defaultValue;
  }

  platform::Failure SaveSetting(const std::string& application, const std::string& section,
                                const std::string& key, const std::string& value) override {
    Context& c = Current();
    std::string path = SettingsPath(FromAnsi(application), FromAnsi(section));
    if (const Fault* f = c.TakeFault("SaveSetting", std::vector<std::string>{path, FromAnsi(application)}))
      return StandardFailure(f->lastError);
    RegistryValue v;
    v.type = REG_SZ;
    std::string text = FromAnsi(value);
    v.data.assign(text.begin(), text.end());
    v.data.push_back(0);
    SetValue(c, path, FromAnsi(key), v);
    // The run status of the 9x family and NT 4.
    if (SameNoCase(FromAnsi(key), "SUCCESS"))
      c.runStatus = nlohmann::json{{"value", text}, {"where", path + "\\" + FromAnsi(key)}};
    return {};
  }

 private:
  static void SetValue(Context& c, const std::string& path, const std::string& name,
                       const RegistryValue& value) {
    KeyEntry& entry = CreateKey(c, path);
    for (auto& [existing, stored] : entry.second) {
      if (SameNoCase(existing, name)) {
        stored = value;
        return;
      }
    }
    entry.second.emplace_back(name, value);
  }
};

}  // namespace

platform::Registry& RegistryService() {
  static SimRegistry service;
  return service;
}

}  // namespace sim
