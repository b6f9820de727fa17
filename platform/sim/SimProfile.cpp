// The profile functions: INI files on the simulated drives read the way
// Windows reads them, and the per-user profile (winIni).
//
// How Windows reads an INI file, as the simulated client does:
// - A file that starts with the UTF-16 little-endian byte order mark is
//   Unicode; any other file is text in the ANSI code page, a UTF-8 byte order
//   mark included (its bytes become characters of the first line, which is
//   then no section line), and a UTF-16 big-endian file too (its NUL bytes
//   leave no section line in the file).
// - CR, LF and CR LF end a line. Blanks (space, tab, vertical tab, form feed,
//   ^Z) around a line, a key and a value are removed.
// - A line starting with ";" is a comment. A line starting with "[" is a
//   section; its name ends at the first "]", or at the line end when there is
//   none, and loses the blanks inside the brackets. Lines before the first
//   section belong to none.
// - A line with "=" is a key; one without is no key and is not listed. A
//   value in matching single or double quotes loses them, then is cut to the
//   buffer. A NUL inside a value is part of it: Windows works on the file's
//   counted text and keeps its NULs.
// - Section and key names compare case-blind (ASCII letters); the first of
//   duplicate sections or keys wins; the names asked for lose their spaces at
//   both ends (not their tabs).
// - Text reaches the engine in the ANSI code page: what the code page lacks
//   becomes its best fit or "?", and a double-byte character is never cut
//   in two.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/Simulator.h"

#include <cstring>

namespace sim {

namespace {

struct IniKey {
  std::u16string name, value;
  int line = 0;   // in the file, from 1
};
struct IniSection {
  std::u16string name;
  std::vector<IniKey> keys;
  int line = 0;
};

bool IsBlank(char16_t c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == 0x1A; }

std::u16string_view Trim(std::u16string_view text) {
  size_t begin = 0, end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

// A name as the caller gives it: spaces at both ends removed.
std::u16string_view TrimSpaces(std::u16string_view text) {
  size_t begin = 0, end = text.size();
  while (begin < end && text[begin] == ' ') ++begin;
  while (end > begin && text[end - 1] == ' ') --end;
  return text.substr(begin, end - begin);
}

char16_t UpperAscii16(char16_t c) { return c >= 'a' && c <= 'z' ? static_cast<char16_t>(c - 32) : c; }

bool SameName(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (UpperAscii16(a[i]) != UpperAscii16(b[i])) return false;
  return true;
}

// The text of an INI file: Unicode after the UTF-16LE byte order mark, else
// the ANSI code page.
std::u16string DecodeIniBytes(const CodePage& codePage, const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
      text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                    static_cast<unsigned char>(bytes[i + 1]) << 8);
    return text;
  }
  return codePage.ToUtf16(bytes);
}

std::vector<IniSection> ParseIni(std::u16string_view text) {
  std::vector<IniSection> sections;
  size_t pos = 0;
  int number = 0;
  while (pos < text.size()) {
    size_t end = text.find_first_of(u"\r\n", pos);
    if (end == std::u16string_view::npos) end = text.size();
    std::u16string_view line = Trim(text.substr(pos, end - pos));
    ++number;
    // CR LF is one line end.
    pos = end + (end + 1 < text.size() && text[end] == '\r' && text[end + 1] == '\n' ? 2 : 1);
    if (line.empty() || line[0] == ';') continue;
    if (line[0] == '[') {
      size_t close = line.find(']');
      std::u16string_view name = line.substr(1, close == std::u16string_view::npos ? line.npos : close - 1);
      sections.push_back(IniSection{std::u16string(Trim(name)), {}, number});
      continue;
    }
    if (sections.empty()) continue;   // lines before the first section belong to none
    size_t equals = line.find('=');
    if (equals == std::u16string_view::npos) continue;
    sections.back().keys.push_back(IniKey{std::u16string(Trim(line.substr(0, equals))),
                                          std::u16string(Trim(line.substr(equals + 1))), number});
  }
  return sections;
}

// winIni as the sections of a file.
std::vector<IniSection> WinIniSections(const Machine& machine) {
  std::vector<IniSection> sections;
  for (const auto& [name, keys] : machine.winIni) {
    IniSection s{Utf8ToUtf16(name), {}, 0};
    for (const auto& [key, value] : keys)
      s.keys.push_back(
          IniKey{std::u16string(Trim(Utf8ToUtf16(key))), std::u16string(Trim(Utf8ToUtf16(value))), 0});
    sections.push_back(std::move(s));
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

// Reads a profile file named in machine text; error is 0, or the last error
// of a file that cannot be read (2 for a missing one). The sections stay
// valid until the next call.
const std::vector<IniSection>& LoadProfileFile(const Context& c, const std::string& fileName, uint32_t& error) {
  static const std::vector<IniSection> kNone;
  error = 0;
  ResolvedPath path = c.Resolve(ProfileFilePath(c, fileName));
  switch (path.status) {
    case ResolvedPath::kOk:
    case ResolvedPath::kNoDevice: break;
    case ResolvedPath::kNullDevice: return kNone;
    case ResolvedPath::kBadName: error = 123; return kNone;    // ERROR_INVALID_NAME
    case ResolvedPath::kTooLong: error = 206; return kNone;    // ERROR_FILENAME_EXCED_RANGE
    case ResolvedPath::kNoDrive:
    case ResolvedPath::kNoSuchDevice: error = ERROR_FILE_NOT_FOUND; return kNone;
  }
  // A folder cannot be read as a file.
  std::string bytes;
  if (DriveRead(c, path.host, bytes) != 0) {
    error = DriveIsFolder(c, path.host) || DriveIsFile(c, path.host) ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND;
    return kNone;
  }
  // The file last read stays parsed while its bytes stay the same (the
  // engine reads every key of one file in turn).
  static uint32_t cachedCodePage = 0;
  static std::string cachedBytes;
  static std::vector<IniSection> cached;
  if (cachedCodePage != c.machine.ansiCodePage || cachedBytes != bytes) {
    cached = ParseIni(DecodeIniBytes(c.AnsiCodePage(), bytes));
    cachedCodePage = c.machine.ansiCodePage;
    cachedBytes = std::move(bytes);
  }
  return cached;
}

const IniSection* FindSection(const std::vector<IniSection>& sections, std::u16string_view name) {
  for (const IniSection& s : sections)
    if (SameName(s.name, name)) return &s;
  return nullptr;
}

// The length of the first count bytes of ANSI text that hold whole
// characters: a double-byte character that does not fit is left out.
size_t WholeCharacters(const CodePage& codePage, std::string_view text, size_t count) {
  if (count >= text.size()) return text.size();
  size_t length = 0;
  while (length < count) {
    size_t next = length + codePage.CharacterLength(text.substr(length));
    if (next > count) break;
    length = next;
  }
  return length;
}

// Copies a list of names, each ended by NUL, and a final NUL; as Windows
// does when the buffer is too small, the list is cut and gives size - 2.
DWORD CopyList(const CodePage& codePage, const std::vector<std::u16string>& names, char* buffer, DWORD size) {
  if (size == 0) return 0;
  if (size == 1) {
    buffer[0] = '\0';
    return 0;
  }
  std::string all;
  for (const std::u16string& n : names) {
    all += codePage.FromUtf16(n);
    all += '\0';
  }
  // An empty list is one NUL (Windows leaves the next byte alone).
  if (all.size() + 1 <= size) {
    std::memcpy(buffer, all.data(), all.size());
    buffer[all.size()] = '\0';
    return static_cast<DWORD>(all.size());
  }
  std::memcpy(buffer, all.data(), size - 2);
  buffer[size - 2] = '\0';
  buffer[size - 1] = '\0';
  return size - 2;
}

// Copies ANSI text into the buffer, cut to size - 1 bytes of whole characters.
DWORD CopyValue(const CodePage& codePage, const std::string& value, char* buffer, DWORD size) {
  if (size == 0) return 0;
  size_t n = WholeCharacters(codePage, value, size - 1);
  std::memcpy(buffer, value.data(), n);
  buffer[n] = '\0';
  return static_cast<DWORD>(n);
}

// A value in matching single or double quotes loses them. (Wine takes off
// one character more when the quoted text is exactly one longer than the
// buffer; Windows does not, and neither does this.)
std::u16string_view Unquoted(std::u16string_view value) {
  if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0])
    return value.substr(1, value.size() - 2);
  return value;
}

// The lookup common to both profiles; section, key and default are the
// engine's text, in the code page.
DWORD GetString(const CodePage& codePage, const std::vector<IniSection>& sections, LPCSTR section,
                LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size) {
  if (!buffer) return 0;
  if (!section) {
    std::vector<std::u16string> names;
    for (const IniSection& s : sections) names.push_back(s.name);
    return CopyList(codePage, names, buffer, size);
  }
  const IniSection* s = FindSection(sections, TrimSpaces(codePage.ToUtf16(section)));
  if (!key) {
    std::vector<std::u16string> names;
    if (s)
      for (const IniKey& k : s->keys) names.push_back(k.name);
    return CopyList(codePage, names, buffer, size);
  }
  if (s) {
    const std::u16string asked = codePage.ToUtf16(key);
    const std::u16string_view wanted = TrimSpaces(asked);
    for (const IniKey& k : s->keys)
      if (SameName(k.name, wanted))
        return CopyValue(codePage, codePage.FromUtf16(Unquoted(k.value)), buffer, size);
  }
  // The default loses its trailing blanks.
  std::string fallback = defaultValue ? defaultValue : "";
  while (!fallback.empty() && fallback.back() == ' ') fallback.pop_back();
  return CopyValue(codePage, fallback, buffer, size);
}

}  // namespace

ProfileLocation LocateProfileKey(const std::string& fileBytes, const std::string& section,
                                 const std::string& key) {
  ProfileLocation where;
  const CodePage& codePage = Current().AnsiCodePage();
  std::vector<IniSection> sections = ParseIni(DecodeIniBytes(codePage, fileBytes));
  const IniSection* s = FindSection(sections, TrimSpaces(codePage.ToUtf16(section)));
  if (!s) return where;
  where.sectionLine = s->line;
  const std::u16string asked = codePage.ToUtf16(key);
  for (const IniKey& k : s->keys) {
    if (!SameName(k.name, TrimSpaces(asked))) continue;
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
    std::string file = ArgText(fileName);
    if (const Fault* f = c.TakeFault("GetPrivateProfileStringA",
                                     std::vector<std::string>{file, ArgText(section)}))
      return static_cast<DWORD>(f->result);
    if (!fileName || IsWinIniName(file))
      return GetString(c.AnsiCodePage(), WinIniSections(c.machine), section, key, defaultValue, buffer, size);
    uint32_t error = 0;
    const std::vector<IniSection>& sections = LoadProfileFile(c, file, error);
    DWORD count = GetString(c.AnsiCodePage(), sections, section, key, defaultValue, buffer, size);
    c.lastError = error;
    return count;
  }

  DWORD GetProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer,
                          DWORD size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetProfileStringA", ArgText(section)))
      return static_cast<DWORD>(f->result);
    return GetString(c.AnsiCodePage(), WinIniSections(c.machine), section, key, defaultValue, buffer, size);
  }

  // Windows/device is where Windows NT 4 keeps the default printer: a write
  // there is a spooler call of the transcript.
  BOOL WriteProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value) override {
    Context& c = Current();
    c.lastError = 0;
    BOOL result = WriteProfile(c, section, key, value);
    const CodePage& page = c.AnsiCodePage();
    if (section && key && SameNoCase(Utf16ToUtf8(Trim(page.ToUtf16(section))), "Windows") &&
        SameNoCase(Utf16ToUtf8(Trim(page.ToUtf16(key))), "device")) {
      nlohmann::json text = value ? nlohmann::json(ArgText(value)) : nlohmann::json(nullptr);
      c.RecordSpoolerCall("WriteProfileStringA", nlohmann::json::array({ArgText(section), ArgText(key), text}),
                          result);
    }
    return result;
  }

 private:
  static BOOL WriteProfile(Context& c, LPCSTR section, LPCSTR key, LPCSTR value) {
    if (const Fault* f = c.TakeFault("WriteProfileStringA", ArgText(section)))
      return static_cast<BOOL>(f->result);
    if (!section) return TRUE;   // only flushes the profile
    auto& winIni = c.machine.winIni;
    std::string sectionName = TrimUtf8(ArgText(section));
    auto s = winIni.begin();
    while (s != winIni.end() && !SameNoCase(TrimUtf8(s->first), sectionName)) ++s;
    if (!key) {
      if (s != winIni.end()) winIni.erase(s);
      return TRUE;
    }
    std::string keyName = TrimUtf8(ArgText(key));
    if (s == winIni.end()) {
      if (!value) return TRUE;
      winIni.emplace_back(sectionName, std::vector<std::pair<std::string, std::string>>{});
      s = winIni.end() - 1;
    }
    auto& keys = s->second;
    auto k = keys.begin();
    while (k != keys.end() && !SameNoCase(TrimUtf8(k->first), keyName)) ++k;
    if (!value) {
      if (k != keys.end()) keys.erase(k);
    } else if (k != keys.end()) {
      k->second = ArgText(value);
    } else {
      keys.emplace_back(keyName, ArgText(value));
    }
    return TRUE;
  }

 private:
  static std::string TrimUtf8(const std::string& text) { return Utf16ToUtf8(Trim(Utf8ToUtf16(text))); }
};

}  // namespace

platform::Profile& ProfileService() {
  static SimProfile service;
  return service;
}

}  // namespace sim
