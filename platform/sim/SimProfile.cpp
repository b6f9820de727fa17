// The profile functions: INI files on the simulated drives read the way
// Windows reads them, and the per-user profile (winIni).
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/Simulator.h"
#include "platform/Utf8.h"

#include <cstring>
#include <sstream>

namespace sim {

namespace {

namespace fs = std::filesystem;
using platform::AppendUtf8;

struct IniKey {
  std::string name;
  std::optional<std::string> value;   // nullopt: a line without "="
  int line = 0;                       // in the file, from 1
};
struct IniSection {
  std::string name;
  std::vector<IniKey> keys;
  int line = 0;
};

bool IsProfileSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f' || c == '\x1a';
}

std::string TrimProfile(const std::string& text) {
  size_t begin = 0, end = text.size();
  while (begin < end && IsProfileSpace(text[begin])) ++begin;
  while (end > begin && IsProfileSpace(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

// A value in matching single or double quotes loses them.
std::string StripQuotes(const std::string& value) {
  if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0])
    return value.substr(1, value.size() - 2);
  return value;
}

// The text of an INI file in the ANSI code page (UTF-8 here): a file with
// the UTF-16LE byte order mark is Unicode, a UTF-8 mark is dropped.
std::string DecodeIniBytes(const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    std::string out;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
      uint32_t unit = static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8;
      if (unit >= 0xD800 && unit <= 0xDBFF && i + 3 < bytes.size()) {
        uint32_t low = static_cast<unsigned char>(bytes[i + 2]) | static_cast<unsigned char>(bytes[i + 3]) << 8;
        if (low >= 0xDC00 && low <= 0xDFFF) {
          AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
          i += 2;
          continue;
        }
      }
      AppendUtf8(out, unit >= 0xD800 && unit <= 0xDFFF ? '?' : unit);
    }
    return out;
  }
  if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) return bytes.substr(3);
  return bytes;
}

std::vector<IniSection> ParseIni(const std::string& text) {
  std::vector<IniSection> sections;
  std::istringstream in(text);
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    std::string trimmed = TrimProfile(line);
    if (trimmed.empty() || trimmed[0] == ';') continue;
    if (trimmed[0] == '[') {
      size_t close = trimmed.rfind(']');
      std::string name = close == std::string::npos || close == 0 ? trimmed.substr(1)
                                                                  : trimmed.substr(1, close - 1);
      sections.push_back(IniSection{name, {}, number});
      continue;
    }
    if (sections.empty()) continue;   // lines before the first section belong to none
    size_t equals = trimmed.find('=');
    if (equals == std::string::npos) {
      sections.back().keys.push_back(IniKey{trimmed, std::nullopt, number});
    } else {
      sections.back().keys.push_back(
          IniKey{TrimProfile(trimmed.substr(0, equals)), TrimProfile(trimmed.substr(equals + 1)), number});
    }
  }
  return sections;
}

// winIni as the sections of a file.
std::vector<IniSection> WinIniSections(const Machine& machine) {
  std::vector<IniSection> sections;
  for (const auto& [name, keys] : machine.winIni) {
    IniSection s{name, {}, 0};
    for (const auto& [key, value] : keys) s.keys.push_back(IniKey{TrimProfile(key), TrimProfile(value), 0});
    sections.push_back(s);
  }
  return sections;
}

// Where a profile file lies: a name without a folder, and a relative path,
// are taken in windowsDir.
std::string ProfileFilePath(const Context& c, const std::string& fileName) {
  std::string name = fileName;
  for (char& ch : name)
    if (ch == '/') ch = '\\';
  bool absolute = (name.size() >= 2 && name[0] == '\\' && name[1] == '\\') ||
                  (name.size() >= 3 && std::isalpha(static_cast<unsigned char>(name[0])) &&
                   name[1] == ':' && name[2] == '\\');
  if (absolute) return name;
  if (!name.empty() && name[0] == '\\') return name;   // the current drive's root
  std::string dir = c.machine.windowsDir;
  if (!dir.empty() && dir.back() != '\\') dir += '\\';
  return dir + name;
}

bool IsWinIniName(const std::string& fileName) { return SameNoCase(fileName, "win.ini"); }

// Reads a profile file; error is 0, or the last error of a file that
// cannot be read (2 for a missing one).
std::vector<IniSection> LoadProfileFile(const Context& c, const std::string& fileName, uint32_t& error) {
  error = 0;
  ResolvedPath path = c.Resolve(ProfileFilePath(c, fileName));
  switch (path.status) {
    case ResolvedPath::kOk:
    case ResolvedPath::kNoDevice: break;
    case ResolvedPath::kNullDevice: return {};
    case ResolvedPath::kBadName: error = 123; return {};    // ERROR_INVALID_NAME
    case ResolvedPath::kTooLong: error = 206; return {};    // ERROR_FILENAME_EXCED_RANGE
    case ResolvedPath::kNoDrive:
    case ResolvedPath::kNoSuchDevice: error = ERROR_FILE_NOT_FOUND; return {};
  }
  if (DriveIsFolder(c, path.host)) {
    error = ERROR_ACCESS_DENIED;
    return {};
  }
  std::string bytes;
  if (DriveRead(c, path.host, bytes) != 0) {
    error = DriveIsFile(c, path.host) ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND;
    return {};
  }
  return ParseIni(DecodeIniBytes(bytes));
}

const IniSection* FindSection(const std::vector<IniSection>& sections, const std::string& name) {
  std::string wanted = TrimProfile(name);
  for (const IniSection& s : sections)
    if (SameNoCase(s.name, wanted)) return &s;
  return nullptr;
}

// Copies a list of names, each ended by NUL, and a final NUL; as Windows
// does when the buffer is too small, the list is cut and gives size - 2.
DWORD CopyList(const std::vector<std::string>& names, char* buffer, DWORD size) {
  if (size == 0) return 0;
  if (size == 1) {
    buffer[0] = '\0';
    return 0;
  }
  std::string all;
  for (const std::string& n : names) {
    all += n;
    all += '\0';
  }
  if (all.size() + 1 <= size) {
    std::memcpy(buffer, all.data(), all.size());
    buffer[all.size()] = '\0';
    if (all.empty() && size >= 2) buffer[1] = '\0';
    return static_cast<DWORD>(all.size());
  }
  std::memcpy(buffer, all.data(), size - 2);
  buffer[size - 2] = '\0';
  buffer[size - 1] = '\0';
  return size - 2;
}

DWORD CopyValue(const std::string& value, char* buffer, DWORD size) {
  if (size == 0) return 0;
  size_t n = std::min<size_t>(value.size(), size - 1);
  std::memcpy(buffer, value.data(), n);
  buffer[n] = '\0';
  return static_cast<DWORD>(n);
}

// The lookup common to both profiles.
DWORD GetString(const std::vector<IniSection>& sections, LPCSTR section, LPCSTR key,
                LPCSTR defaultValue, LPSTR buffer, DWORD size) {
  if (!buffer) return 0;
  if (!section) {
    std::vector<std::string> names;
    for (const IniSection& s : sections) names.push_back(s.name);
    return CopyList(names, buffer, size);
  }
  const IniSection* s = FindSection(sections, section);
  if (!key) {
    std::vector<std::string> names;
    if (s)
      for (const IniKey& k : s->keys) names.push_back(k.name);
    return CopyList(names, buffer, size);
  }
  if (s) {
    std::string wanted = TrimProfile(key);
    for (const IniKey& k : s->keys) {
      if (!SameNoCase(k.name, wanted)) continue;
      if (k.value) return CopyValue(StripQuotes(*k.value), buffer, size);
      break;
    }
  }
  // The default loses its trailing blanks.
  std::string fallback = ArgText(defaultValue);
  while (!fallback.empty() && fallback.back() == ' ') fallback.pop_back();
  return CopyValue(fallback, buffer, size);
}

}  // namespace

ProfileLocation LocateProfileKey(const std::string& fileBytes, const std::string& section,
                                 const std::string& key) {
  ProfileLocation where;
  std::vector<IniSection> sections = ParseIni(DecodeIniBytes(fileBytes));
  const IniSection* s = FindSection(sections, section);
  if (!s) return where;
  where.sectionLine = s->line;
  std::string wanted = TrimProfile(key);
  for (const IniKey& k : s->keys) {
    if (!SameNoCase(k.name, wanted)) continue;
    where.keyLine = k.line;
    break;
  }
  return where;
}

namespace {

class SimProfile : public platform::Profile {
 public:
  DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                                 DWORD size, LPCSTR fileName) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetPrivateProfileStringA",
                                     std::vector<std::string>{ArgText(fileName), ArgText(section)}))
      return static_cast<DWORD>(f->result);
    if (!fileName || IsWinIniName(fileName))
      return GetString(WinIniSections(c.machine), section, key, defaultValue, buffer, size);
    uint32_t error = 0;
    std::vector<IniSection> sections = LoadProfileFile(c, fileName, error);
    DWORD count = GetString(sections, section, key, defaultValue, buffer, size);
    c.lastError = error;
    return count;
  }

  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                          DWORD size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetProfileStringA", ArgText(section)))
      return static_cast<DWORD>(f->result);
    return GetString(WinIniSections(c.machine), section, key, defaultValue, buffer, size);
  }

  // Windows/device is where Windows NT 4 keeps the default printer: a write
  // there is a spooler call of the transcript.
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    Context& c = Current();
    c.lastError = 0;
    BOOL result = WriteProfile(c, section, key, value);
    if (section && key && SameNoCase(TrimProfile(section), "Windows") &&
        SameNoCase(TrimProfile(key), "device")) {
      nlohmann::json text = value ? nlohmann::json(value) : nlohmann::json(nullptr);
      c.RecordSpoolerCall("WriteProfileStringA", nlohmann::json::array({section, key, text}), result);
    }
    return result;
  }

 private:
  static BOOL WriteProfile(Context& c, LPCSTR section, LPCSTR key, LPCSTR value) {
    if (const Fault* f = c.TakeFault("WriteProfileStringA", ArgText(section)))
      return static_cast<BOOL>(f->result);
    if (!section) return TRUE;   // only flushes the profile
    auto& winIni = c.machine.winIni;
    std::string sectionName = TrimProfile(section);
    auto s = winIni.begin();
    while (s != winIni.end() && !SameNoCase(TrimProfile(s->first), sectionName)) ++s;
    if (!key) {
      if (s != winIni.end()) winIni.erase(s);
      return TRUE;
    }
    std::string keyName = TrimProfile(key);
    if (s == winIni.end()) {
      if (!value) return TRUE;
      winIni.emplace_back(sectionName, std::vector<std::pair<std::string, std::string>>{});
      s = winIni.end() - 1;
    }
    auto& keys = s->second;
    auto k = keys.begin();
    while (k != keys.end() && !SameNoCase(TrimProfile(k->first), keyName)) ++k;
    if (!value) {
      if (k != keys.end()) keys.erase(k);
    } else if (k != keys.end()) {
      k->second = value;
    } else {
      keys.emplace_back(keyName, value);
    }
    return TRUE;
  }
};

}  // namespace

platform::Profile& ProfileService() {
  static SimProfile service;
  return service;
}

}  // namespace sim
