// machine.json's text: read and validated into a machine, and written from
// one. The file itself is read and written in SimMachineFile.cpp.
#include "platform/sim/SimMachine.h"

#include "platform/Utf8.h"
#include "platform/sim/SimCodePage.h"
#include "platform/sim/Simulator.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdio>
#include <limits>
#include <unordered_set>

namespace sim {

namespace {

using Json = nlohmann::ordered_json;

// A field's name for a message: control characters as JSON writes them.
std::string Printable(const std::string& name) {
  std::string out;
  for (char c : name) {
    if (static_cast<unsigned char>(c) >= 0x20) {
      out += c;
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
      out += escaped;
    }
  }
  return out;
}

// Walks the parsed document and names the field of the first thing wrong.
class Reader {
 public:
  explicit Reader(std::string file) : file_(std::move(file)) {}

  [[noreturn]] void Fail(const std::string& field, const std::string& expected) const {
    throw MachineError{file_ + ": field '" + Printable(field) + "': " + expected};
  }

  // Refuses any member of an object that is not one of the names allowed.
  void OnlyFields(const Json& object, const std::string& field,
                  std::initializer_list<const char*> allowed) const {
    for (auto it = object.begin(); it != object.end(); ++it) {
      bool known = false;
      for (const char* name : allowed) known = known || it.key() == name;
      if (!known) {
        std::string list;
        for (const char* name : allowed) list += std::string(list.empty() ? "" : ", ") + name;
        Fail(Join(field, it.key()), "unknown field (expected one of: " + list + ")");
      }
    }
  }

  static std::string Join(const std::string& field, const std::string& name) {
    return field.empty() ? name : field + "." + name;
  }

  const Json& Object(const Json& value, const std::string& field) const {
    if (!value.is_object()) Fail(field, "expected an object");
    return value;
  }
  const Json& Array(const Json& value, const std::string& field) const {
    if (!value.is_array()) Fail(field, "expected an array");
    return value;
  }
  // Text names, paths and messages: no NUL, which no Windows name holds.
  std::string String(const Json& value, const std::string& field) const {
    if (!value.is_string()) Fail(field, "expected a string");
    return WithoutNul(value.get<std::string>(), field);
  }
  std::optional<std::string> StringOrNull(const Json& value, const std::string& field) const {
    if (value.is_null()) return std::nullopt;
    if (!value.is_string()) Fail(field, "expected a string or null");
    return WithoutNul(value.get<std::string>(), field);
  }
  // Data that may hold NULs: a registry value's text, an event's data.
  std::string Data(const Json& value, const std::string& field) const {
    if (!value.is_string()) Fail(field, "expected a string");
    return value.get<std::string>();
  }
  int64_t Integer(const Json& value, const std::string& field, int64_t low, int64_t high) const {
    if (!value.is_number_integer()) Fail(field, "expected an integer");
    if (value.is_number_unsigned()) {
      uint64_t u = value.get<uint64_t>();
      if (u > static_cast<uint64_t>(high)) Fail(field, RangeText(low, high));
      return static_cast<int64_t>(u);
    }
    int64_t v = value.get<int64_t>();
    if (v < low || v > high) Fail(field, RangeText(low, high));
    return v;
  }
  uint32_t Dword(const Json& value, const std::string& field) const {
    return static_cast<uint32_t>(Integer(value, field, 0, 0xFFFFFFFFLL));
  }
  std::vector<std::string> StringList(const Json& value, const std::string& field) const {
    Array(value, field);
    std::vector<std::string> list;
    for (size_t i = 0; i < value.size(); ++i)
      list.push_back(String(value[i], field + "[" + std::to_string(i) + "]"));
    return list;
  }

 private:
  std::string WithoutNul(std::string text, const std::string& field) const {
    if (text.find('\0') != std::string::npos) Fail(field, "expected a string without NUL characters");
    return text;
  }
  static std::string RangeText(int64_t low, int64_t high) {
    return "expected an integer from " + std::to_string(low) + " to " + std::to_string(high);
  }
  std::string file_;
};

bool ValidClock(const std::string& text) {
  // YYYY-MM-DDTHH:MM:SS
  if (text.size() != 19) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (i == 4 || i == 7) {
      if (c != '-') return false;
    } else if (i == 10) {
      if (c != 'T') return false;
    } else if (i == 13 || i == 16) {
      if (c != ':') return false;
    } else if (!std::isdigit(static_cast<unsigned char>(c))) {
      return false;
    }
  }
  int year = std::stoi(text.substr(0, 4)), month = std::stoi(text.substr(5, 2)),
      day = std::stoi(text.substr(8, 2)), hour = std::stoi(text.substr(11, 2)),
      minute = std::stoi(text.substr(14, 2)), second = std::stoi(text.substr(17, 2));
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 100 || month < 1 || month > 12) return false;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  int days = kDays[month - 1] + (month == 2 && leap ? 1 : 0);
  return day >= 1 && day <= days && hour <= 23 && minute <= 59 && second <= 59;
}

std::string CanonicalRoot(const std::string& path) {
  // Long names of the roots; HKLM and HKCU are accepted as short forms.
  std::string upper;
  for (char c : path) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  struct Root {
    const char* shortName;
    const char* longName;
  };
  static const Root kRoots[] = {{"HKLM", "HKEY_LOCAL_MACHINE"}, {"HKCU", "HKEY_CURRENT_USER"},
                                {"HKCR", "HKEY_CLASSES_ROOT"}, {"HKU", "HKEY_USERS"}};
  for (const Root& root : kRoots) {
    std::string s = root.shortName;
    if (upper == s || upper.rfind(s + "\\", 0) == 0) return root.longName + path.substr(s.size());
  }
  return path;
}

bool KnownRoot(const std::string& path) {
  std::string upper;
  for (char c : path) upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const char* root : {"HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER", "HKEY_CLASSES_ROOT", "HKEY_USERS"}) {
    std::string r = root;
    if (upper == r || upper.rfind(r + "\\", 0) == 0) return true;
  }
  return false;
}

void PutLittleEndian(std::vector<uint8_t>& data, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) data.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

RegistryValue ReadRegistryValue(const Reader& r, const Json& value, const std::string& field) {
  RegistryValue result;
  if (value.is_string()) {
    std::string text = value.get<std::string>();
    result.type = REG_SZ;
    result.data.assign(text.begin(), text.end());
    result.data.push_back(0);
    return result;
  }
  if (!value.is_object())
    r.Fail(field, "expected a string or an object {\"type\": T, \"data\": D}");
  r.OnlyFields(value, field, {"type", "data"});
  if (!value.contains("type")) r.Fail(Reader::Join(field, "type"), "expected an integer (missing)");
  result.type = r.Dword(value["type"], Reader::Join(field, "type"));
  if (!value.contains("data")) return result;
  const Json& data = value["data"];
  std::string dataField = Reader::Join(field, "data");
  if (data.is_array()) {
    bool allBytes = true;
    for (const Json& b : data) allBytes = allBytes && b.is_number_integer();
    if (allBytes) {
      for (size_t i = 0; i < data.size(); ++i)
        result.data.push_back(static_cast<uint8_t>(
            r.Integer(data[i], dataField + "[" + std::to_string(i) + "]", 0, 255)));
      return result;
    }
    if (result.type == REG_MULTI_SZ) {
      for (const std::string& s : r.StringList(data, dataField)) {
        result.data.insert(result.data.end(), s.begin(), s.end());
        result.data.push_back(0);
      }
      result.data.push_back(0);
      return result;
    }
    r.Fail(dataField, "expected an array of byte values 0-255");
  }
  switch (result.type) {
    case REG_DWORD:
    case 5:
    case 11: {
      if (!data.is_number_integer())
        r.Fail(dataField, "expected an integer or an array of byte values 0-255");
      int64_t low = result.type == 11 ? std::numeric_limits<int64_t>::min() : -2147483648LL;
      int64_t high = result.type == 11 ? std::numeric_limits<int64_t>::max() : 0xFFFFFFFFLL;
      uint64_t v = static_cast<uint64_t>(r.Integer(data, dataField, low, high));
      if (data.is_number_unsigned()) v = data.get<uint64_t>();
      if (result.type == 5) {
        for (int i = 3; i >= 0; --i) result.data.push_back(static_cast<uint8_t>(v >> (8 * i)));
      } else {
        PutLittleEndian(result.data, v, result.type == 11 ? 8 : 4);
      }
      return result;
    }
    case REG_SZ:
    case REG_EXPAND_SZ: {
      std::string text = r.Data(data, dataField);
      result.data.assign(text.begin(), text.end());
      result.data.push_back(0);
      return result;
    }
    case REG_MULTI_SZ:
      r.Fail(dataField, "expected an array of strings or of byte values 0-255");
    default: {
      if (!data.is_string()) r.Fail(dataField, "expected a string or an array of byte values 0-255");
      std::string text = data.get<std::string>();
      result.data.assign(text.begin(), text.end());
      return result;
    }
  }
}

SimPrinter ReadPrinter(const Reader& r, const Json& value, const std::string& field) {
  r.Object(value, field);
  r.OnlyFields(value, field,
               {"name", "serverName", "shareName", "portName", "driverName", "comment", "location",
                "attributes"});
  SimPrinter p;
  if (!value.contains("name")) r.Fail(Reader::Join(field, "name"), "expected a string (missing)");
  for (auto it = value.begin(); it != value.end(); ++it) {
    const std::string& k = it.key();
    std::string f = Reader::Join(field, k);
    if (k == "name") p.name = r.String(*it, f);
    else if (k == "serverName") p.serverName = r.StringOrNull(*it, f);
    else if (k == "shareName") p.shareName = r.String(*it, f);
    else if (k == "portName") p.portName = r.String(*it, f);
    else if (k == "driverName") p.driverName = r.String(*it, f);
    else if (k == "comment") p.comment = r.String(*it, f);
    else if (k == "location") p.location = r.String(*it, f);
    else if (k == "attributes") p.attributes = r.Dword(*it, f);
  }
  return p;
}

// A print server's queues: names, or {"name": N, "driver": D}.
std::vector<ServerQueue> ReadServerQueues(const Reader& r, const Json& value, const std::string& field) {
  r.Array(value, field);
  std::vector<ServerQueue> queues;
  for (size_t i = 0; i < value.size(); ++i) {
    const Json& q = value[i];
    std::string f = field + "[" + std::to_string(i) + "]";
    ServerQueue queue;
    if (q.is_string()) {
      queue.name = q.get<std::string>();
    } else {
      if (!q.is_object()) r.Fail(f, "expected a string or an object {\"name\": N, \"driver\": D}");
      r.OnlyFields(q, f, {"name", "driver"});
      if (!q.contains("name")) r.Fail(Reader::Join(f, "name"), "expected a string (missing)");
      queue.name = r.String(q["name"], Reader::Join(f, "name"));
      if (q.contains("driver")) queue.driver = r.StringOrNull(q["driver"], Reader::Join(f, "driver"));
    }
    queues.push_back(queue);
  }
  return queues;
}

SmtpPeer ReadSmtpPeer(const Reader& r, const Json& value, const std::string& field) {
  const char* expected = "expected \"accept\", \"silent\" or {\"refuse\": STEP} with STEP from 1 to 6";
  SmtpPeer peer;
  if (value.is_string()) {
    std::string mode = value.get<std::string>();
    if (mode == "accept") peer.mode = SmtpPeer::kAccept;
    else if (mode == "silent") peer.mode = SmtpPeer::kSilent;
    else r.Fail(field, expected);
    return peer;
  }
  if (!value.is_object() || !value.contains("refuse")) r.Fail(field, expected);
  r.OnlyFields(value, field, {"refuse"});
  peer.mode = SmtpPeer::kRefuse;
  peer.refuseStep = static_cast<int>(r.Integer(value["refuse"], Reader::Join(field, "refuse"), 1, 6));
  return peer;
}

CaptureInfo ReadCapture(const Reader& r, const Json& value, const std::string& field) {
  r.Object(value, field);
  r.OnlyFields(value, field, {"at", "version", "notes"});
  CaptureInfo capture;
  if (value.contains("at")) capture.at = r.String(value["at"], Reader::Join(field, "at"));
  if (value.contains("version")) capture.version = r.String(value["version"], Reader::Join(field, "version"));
  if (value.contains("notes")) capture.notes = r.StringList(value["notes"], Reader::Join(field, "notes"));
  return capture;
}

SimDirectory ReadDirectory(const Reader& r, const Json& value, const std::string& field) {
  r.Object(value, field);
  r.OnlyFields(value, field,
               {"domain", "namingContext", "printQueues", "queryError", "ldap", "sizeLimit"});
  SimDirectory d;
  for (auto it = value.begin(); it != value.end(); ++it) {
    const std::string& k = it.key();
    std::string f = Reader::Join(field, k);
    if (k == "domain") {
      d.domain = r.String(*it, f);
    } else if (k == "namingContext") {
      d.namingContext = r.String(*it, f);
    } else if (k == "ldap") {
      d.ldap = r.StringOrNull(*it, f);
    } else if (k == "sizeLimit") {
      d.sizeLimit = r.Dword(*it, f);
    } else if (k == "queryError") {
      if (it->is_null()) continue;
      r.Object(*it, f);
      r.OnlyFields(*it, f, {"number", "description"});
      DirectoryError e;
      if (it->contains("number"))
        e.number = static_cast<int32_t>(
            r.Integer((*it)["number"], f + ".number", std::numeric_limits<int32_t>::min(),
                      std::numeric_limits<int32_t>::max()));
      if (it->contains("description")) e.description = r.String((*it)["description"], f + ".description");
      d.queryError = e;
    } else if (k == "printQueues") {
      r.Array(*it, f);
      for (size_t i = 0; i < it->size(); ++i) {
        const Json& q = (*it)[i];
        std::string qf = f + "[" + std::to_string(i) + "]";
        r.Object(q, qf);
        r.OnlyFields(q, qf, {"name", "printShareName"});
        PrintQueue queue;
        if (q.contains("name")) queue.name = r.StringOrNull(q["name"], qf + ".name");
        if (q.contains("printShareName")) {
          const Json& s = q["printShareName"];
          if (s.is_string()) queue.printShareName.push_back(s.get<std::string>());
          else if (!s.is_null()) queue.printShareName = r.StringList(s, qf + ".printShareName");
        }
        d.printQueues.push_back(queue);
      }
    }
  }
  return d;
}

EventEntry ReadEvent(const Reader& r, const Json& value, const std::string& field) {
  r.Object(value, field);
  r.OnlyFields(value, field, {"source", "type", "category", "id", "strings", "data"});
  EventEntry e;
  for (auto it = value.begin(); it != value.end(); ++it) {
    const std::string& k = it.key();
    std::string f = Reader::Join(field, k);
    if (k == "source") e.source = r.String(*it, f);
    else if (k == "type") e.type = static_cast<int>(r.Integer(*it, f, 0, 0xFFFF));
    else if (k == "category") e.category = static_cast<int>(r.Integer(*it, f, 0, 0xFFFF));
    else if (k == "id") e.id = r.Dword(*it, f);
    else if (k == "strings") e.strings = r.StringList(*it, f);
    else if (k == "data") e.data = r.Data(*it, f);
  }
  return e;
}

Fault ReadFault(const Reader& r, const Json& value, const std::string& field) {
  r.Object(value, field);
  r.OnlyFields(value, field, {"call", "match", "result", "lastError", "skip", "times"});
  Fault fault;
  if (!value.contains("call")) r.Fail(Reader::Join(field, "call"), "expected a string (missing)");
  for (auto it = value.begin(); it != value.end(); ++it) {
    const std::string& k = it.key();
    std::string f = Reader::Join(field, k);
    if (k == "call") {
      fault.call = r.String(*it, f);
    } else if (k == "match") {
      fault.match = r.StringOrNull(*it, f);
    } else if (k == "result") {
      fault.result = r.Integer(*it, f, std::numeric_limits<int64_t>::min(),
                               std::numeric_limits<int64_t>::max());
    } else if (k == "lastError") {
      fault.lastError = r.Dword(*it, f);
    } else if (k == "skip") {
      fault.skip = static_cast<int>(r.Integer(*it, f, 0, std::numeric_limits<int>::max()));
    } else if (k == "times") {
      if (!it->is_null())
        fault.times = static_cast<int>(r.Integer(*it, f, 0, std::numeric_limits<int>::max()));
    }
  }
  return fault;
}

Machine ReadMachine(const Reader& r, const Json& root) {
  Machine m;
  if (!root.is_object()) r.Fail("(top level)", "expected an object");
  r.OnlyFields(root, "",
               {"os", "computerName", "userName", "exePath", "profileDir", "windowsDir", "systemDir",
                "tempDir", "localHostName", "clock", "timerIntervalMs", "printers", "defaultPrinter",
                "printServers", "drivers", "ports", "winIni", "registry", "directory", "eventLog",
                "readOnly", "faults", "user", "pointAndPrint", "smtp", "capture"});
  for (auto it = root.begin(); it != root.end(); ++it) {
    const std::string& k = it.key();
    const Json& v = *it;
    if (k == "os") {
      r.Object(v, k);
      r.OnlyFields(v, k, {"platformId", "majorVersion", "minorVersion", "versionError", "ansiCodePage"});
      for (auto o = v.begin(); o != v.end(); ++o) {
        std::string f = "os." + o.key();
        uint32_t n = r.Dword(*o, f);
        if (o.key() == "platformId") m.platformId = n;
        else if (o.key() == "majorVersion") m.majorVersion = n;
        else if (o.key() == "minorVersion") m.minorVersion = n;
        else if (o.key() == "versionError") m.versionError = n;
        else if (!CodePage::Served(n))
          r.Fail(f, "expected an ANSI code page the simulated client serves: " + CodePage::ServedList());
        else m.ansiCodePage = n;
      }
    } else if (k == "user") {
      r.Object(v, k);
      r.OnlyFields(v, k, {"isAdmin"});
      if (v.contains("isAdmin")) {
        if (!v["isAdmin"].is_boolean()) r.Fail("user.isAdmin", "expected true or false");
        m.isAdmin = v["isAdmin"].get<bool>();
      }
    } else if (k == "pointAndPrint") {
      r.Object(v, k);
      for (auto e = v.begin(); e != v.end(); ++e) {
        std::string f = k + "." + e.key();
        // A plain number is a REG_DWORD, as the policy's values are.
        if (e->is_number_integer()) {
          RegistryValue dword;
          dword.type = REG_DWORD;
          PutLittleEndian(dword.data, static_cast<uint32_t>(r.Integer(*e, f, -2147483648LL, 0xFFFFFFFFLL)), 4);
          m.pointAndPrint.emplace_back(e.key(), dword);
        } else {
          m.pointAndPrint.emplace_back(e.key(), ReadRegistryValue(r, *e, f));
        }
      }
    } else if (k == "smtp") {
      if (!v.is_null()) m.smtp = ReadSmtpPeer(r, v, k);
    } else if (k == "capture") {
      if (!v.is_null()) m.capture = ReadCapture(r, v, k);
    } else if (k == "computerName") {
      m.computerName = r.StringOrNull(v, k);
    } else if (k == "userName") {
      m.userName = r.StringOrNull(v, k);
    } else if (k == "exePath") {
      m.exePath = r.String(v, k);
    } else if (k == "profileDir") {
      m.profileDir = r.String(v, k);
    } else if (k == "windowsDir") {
      m.windowsDir = r.String(v, k);
    } else if (k == "systemDir") {
      m.systemDir = r.String(v, k);
    } else if (k == "tempDir") {
      m.tempDir = r.String(v, k);
    } else if (k == "localHostName") {
      m.localHostName = r.StringOrNull(v, k);
    } else if (k == "clock") {
      m.clock = r.StringOrNull(v, k);
      if (m.clock && !ValidClock(*m.clock))
        r.Fail(k, "expected a local date and time \"YYYY-MM-DDTHH:MM:SS\"");
    } else if (k == "timerIntervalMs") {
      m.timerIntervalMs = static_cast<uint32_t>(r.Integer(v, k, 0, 86400000));
    } else if (k == "printers") {
      r.Array(v, k);
      for (size_t i = 0; i < v.size(); ++i)
        m.printers.push_back(ReadPrinter(r, v[i], k + "[" + std::to_string(i) + "]"));
    } else if (k == "defaultPrinter") {
      m.defaultPrinter = r.StringOrNull(v, k);
    } else if (k == "printServers") {
      r.Object(v, k);
      for (auto s = v.begin(); s != v.end(); ++s) {
        std::string f = k + "." + s.key();
        r.Object(*s, f);
        r.OnlyFields(*s, f, {"queues"});
        PrintServer server;
        if (s->contains("queues")) server.queues = ReadServerQueues(r, (*s)["queues"], f + ".queues");
        m.printServers[s.key()] = server;
      }
    } else if (k == "drivers") {
      m.drivers = r.StringList(v, k);
    } else if (k == "ports") {
      m.ports = r.StringList(v, k);
    } else if (k == "winIni") {
      r.Object(v, k);
      for (auto s = v.begin(); s != v.end(); ++s) {
        std::string f = k + "." + s.key();
        r.Object(*s, f);
        std::vector<std::pair<std::string, std::string>> keys;
        for (auto e = s->begin(); e != s->end(); ++e)
          keys.emplace_back(e.key(), r.String(*e, f + "." + e.key()));
        m.winIni.emplace_back(s.key(), keys);
      }
    } else if (k == "registry") {
      r.Object(v, k);
      for (auto s = v.begin(); s != v.end(); ++s) {
        std::string f = k + "." + s.key();
        if (!KnownRoot(CanonicalRoot(s.key())))
          r.Fail(f, "expected a key path that begins with HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, "
                    "HKEY_CLASSES_ROOT or HKEY_USERS");
        r.Object(*s, f);
        std::vector<std::pair<std::string, RegistryValue>> values;
        for (auto e = s->begin(); e != s->end(); ++e)
          values.emplace_back(e.key(), ReadRegistryValue(r, *e, f + "." + e.key()));
        m.registry.emplace_back(CanonicalRoot(s.key()), values);
      }
    } else if (k == "directory") {
      if (!v.is_null()) m.directory = ReadDirectory(r, v, k);
    } else if (k == "eventLog") {
      r.Array(v, k);
      for (size_t i = 0; i < v.size(); ++i)
        m.eventLog.push_back(ReadEvent(r, v[i], k + "[" + std::to_string(i) + "]"));
    } else if (k == "readOnly") {
      m.readOnly = r.StringList(v, k);
    } else if (k == "faults") {
      r.Array(v, k);
      for (size_t i = 0; i < v.size(); ++i)
        m.faults.push_back(ReadFault(r, v[i], k + "[" + std::to_string(i) + "]"));
    }
  }
  return m;
}

// The line and column (from 1) of a byte offset of text.
std::pair<size_t, size_t> LineAndColumn(const std::string& text, size_t offset) {
  size_t line = 1, column = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return {line, column};
}

bool ValidUtf8(const std::vector<uint8_t>& bytes, size_t begin, size_t end) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()) + begin, end - begin);
  uint32_t cp;
  for (size_t i = 0; i < text.size();)
    if (!platform::DecodeUtf8(text, i, cp)) return false;
  return true;
}

Json RegistryValueToJson(const RegistryValue& value) {
  const std::vector<uint8_t>& d = value.data;
  auto bytes = [&] {
    Json array = Json::array();
    for (uint8_t b : d) array.push_back(b);
    return Json{{"type", value.type}, {"data", array}};
  };
  auto text = [&]() -> std::optional<std::string> {
    // One NUL, at the end, and valid UTF-8 before it.
    if (d.empty() || d.back() != 0) return std::nullopt;
    for (size_t i = 0; i + 1 < d.size(); ++i)
      if (d[i] == 0) return std::nullopt;
    if (!ValidUtf8(d, 0, d.size() - 1)) return std::nullopt;
    return std::string(d.begin(), d.end() - 1);
  };
  switch (value.type) {
    case REG_SZ:
      if (auto t = text()) return *t;
      return bytes();
    case REG_EXPAND_SZ:
      if (auto t = text()) return Json{{"type", value.type}, {"data", *t}};
      return bytes();
    case REG_DWORD:
      if (d.size() == 4)
        return Json{{"type", value.type},
                    {"data", uint32_t(d[0]) | uint32_t(d[1]) << 8 | uint32_t(d[2]) << 16 |
                                 uint32_t(d[3]) << 24}};
      return bytes();
    case 5:
      if (d.size() == 4)
        return Json{{"type", value.type},
                    {"data", uint32_t(d[3]) | uint32_t(d[2]) << 8 | uint32_t(d[1]) << 16 |
                                 uint32_t(d[0]) << 24}};
      return bytes();
    case 11:
      if (d.size() == 8) {
        uint64_t v = 0;
        for (int i = 7; i >= 0; --i) v = v << 8 | d[i];
        return Json{{"type", value.type}, {"data", static_cast<int64_t>(v)}};
      }
      return bytes();
    case REG_MULTI_SZ: {
      if (d.size() < 1 || d.back() != 0 || !ValidUtf8(d, 0, d.size())) return bytes();
      Json list = Json::array();
      std::vector<uint8_t> rebuilt;
      size_t start = 0;
      for (size_t i = 0; i + 1 < d.size(); ++i) {
        if (d[i] == 0) {
          list.push_back(std::string(d.begin() + start, d.begin() + i));
          start = i + 1;
        }
      }
      for (const Json& s : list) {
        std::string t = s.get<std::string>();
        rebuilt.insert(rebuilt.end(), t.begin(), t.end());
        rebuilt.push_back(0);
      }
      rebuilt.push_back(0);
      if (rebuilt == d && !list.empty()) return Json{{"type", value.type}, {"data", list}};
      return bytes();
    }
    default:
      return bytes();
  }
}

// Builds the document of machine.json from the parser's events, refusing
// what the parser takes but the contract does not: a field that stands twice
// in one object (only one of them would be read), and numbers beyond the
// range of a double (named with their place, where the parser only throws).
class DocumentBuilder : public nlohmann::json_sax<Json> {
 public:
  explicit DocumentBuilder(const std::string& text) : text_(text) {}

  Json root;
  std::string error;   // why the document was refused, with its place

  bool null() override { return Value(nullptr); }
  bool boolean(bool value) override { return Value(value); }
  bool number_integer(number_integer_t value) override { return Value(value); }
  bool number_unsigned(number_unsigned_t value) override { return Value(value); }
  bool number_float(number_float_t value, const string_t&) override { return Value(value); }
  bool string(string_t& value) override { return Value(std::move(value)); }
  bool binary(binary_t&) override { return false; }   // JSON text holds none
  bool start_object(std::size_t) override {
    if (!Value(Json::object())) return false;
    keys_.emplace_back();
    return true;
  }
  bool key(string_t& name) override {
    if (name.find('\0') != std::string::npos) {
      error = "field '" + Printable(Field(name)) + "': expected a name without NUL characters";
      return false;
    }
    if (!keys_.back().insert(name).second) {
      error = "field '" + Printable(Field(name)) + "': stands twice in its object (expected each field once)";
      return false;
    }
    key_ = name;
    return true;
  }
  bool end_object() override {
    keys_.pop_back();
    open_.pop_back();
    return true;
  }
  bool start_array(std::size_t) override { return Value(Json::array()); }
  bool end_array() override {
    open_.pop_back();
    return true;
  }
  bool parse_error(std::size_t position, const std::string& token,
                   const nlohmann::detail::exception& e) override {
    std::string what = e.what();
    if (e.id == 406) {
      // The number ends where the parser stopped; name the place it starts.
      size_t start = position >= token.size() ? position - token.size() : 0;
      error = Place(start) + ": the number " + token +
              " is beyond the range of a double (expected a number from -1.7976931348623157e308 "
              "to 1.7976931348623157e308)";
      return false;
    }
    // Keep the parser's reason, without its own prefix and position.
    size_t colon = what.find(": ", what.find("column"));
    size_t bracket = what.find("] ");
    std::string reason = colon != std::string::npos   ? what.substr(colon + 2)
                         : bracket != std::string::npos ? what.substr(bracket + 2)
                                                        : what;
    error = Place(position > 0 ? position - 1 : 0) + ": invalid JSON: " + reason;
    return false;
  }

 private:
  // Puts a value where the document stands; a container stays open.
  bool Value(Json value) {
    Json* placed = nullptr;
    if (open_.empty()) {
      root = std::move(value);
      placed = &root;
    } else if (open_.back()->is_object()) {
      placed = &(*open_.back())[key_];
      *placed = std::move(value);
    } else {
      open_.back()->push_back(std::move(value));
      placed = &open_.back()->back();
    }
    if (placed->is_structured()) open_.push_back(placed);
    return true;
  }

  // The field a key of the innermost open object stands for.
  std::string Field(const std::string& name) const {
    std::string field;
    const Json* parent = nullptr;
    for (const Json* container : open_) {
      if (parent) {
        if (parent->is_object()) {
          for (auto it = parent->begin(); it != parent->end(); ++it) {
            if (&*it != container) continue;
            if (!field.empty()) field += '.';
            field += it.key();
          }
        } else {
          for (size_t i = 0; i < parent->size(); ++i) {
            if (&(*parent)[i] != container) continue;
            field += '[';
            field += std::to_string(i);
            field += ']';
          }
        }
      }
      parent = container;
    }
    if (field.empty()) return name;
    field += '.';
    field += name;
    return field;
  }

  std::string Place(size_t offset) const {
    auto [line, column] = LineAndColumn(text_, offset);
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
  }

  const std::string& text_;
  std::vector<Json*> open_;                            // open containers, outermost first
  std::vector<std::unordered_set<std::string>> keys_;  // the keys of each open object
  std::string key_;                                    // the key of the next value
};

}  // namespace

Machine MachineFromText(const std::string& text, const std::string& name) {
  DocumentBuilder document(text);
  if (!Json::sax_parse(text, &document)) throw MachineError{name + ": " + document.error};
  return ReadMachine(Reader(name), document.root);
}

nlohmann::ordered_json MachineToJson(const Machine& m);

nlohmann::json SmtpPeerJson(const SmtpPeer& peer) {
  switch (peer.mode) {
    case SmtpPeer::kAccept: return "accept";
    case SmtpPeer::kSilent: return "silent";
    case SmtpPeer::kRefuse: break;
  }
  return nlohmann::json{{"refuse", peer.refuseStep}};
}

std::optional<uint32_t> DwordOf(const RegistryValue& value) {
  const std::vector<uint8_t>& d = value.data;
  if (value.type != REG_DWORD || d.size() != 4) return std::nullopt;
  return uint32_t(d[0]) | uint32_t(d[1]) << 8 | uint32_t(d[2]) << 16 | uint32_t(d[3]) << 24;
}

nlohmann::ordered_json PointAndPrintToJson(
    const std::vector<std::pair<std::string, RegistryValue>>& values) {
  Json json = Json::object();
  for (const auto& [name, value] : values) {
    std::optional<uint32_t> dword = DwordOf(value);
    json[name] = dword ? Json(*dword) : RegistryValueToJson(value);
  }
  return json;
}

std::string MachineText(const Machine& machine) {
  return MachineToJson(machine).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

nlohmann::ordered_json MachineToJson(const Machine& m) {
  Json root = Json::object();
  if (m.capture)
    root["capture"] = Json{{"at", m.capture->at}, {"version", m.capture->version}, {"notes", m.capture->notes}};
  root["os"] = Json{{"platformId", m.platformId},
                    {"majorVersion", m.majorVersion},
                    {"minorVersion", m.minorVersion},
                    {"versionError", m.versionError},
                    {"ansiCodePage", m.ansiCodePage}};
  root["user"] = Json{{"isAdmin", m.isAdmin}};
  root["computerName"] = m.computerName ? Json(*m.computerName) : Json(nullptr);
  root["userName"] = m.userName ? Json(*m.userName) : Json(nullptr);
  root["exePath"] = m.exePath;
  root["profileDir"] = m.profileDir;
  root["windowsDir"] = m.windowsDir;
  root["systemDir"] = m.systemDir;
  root["tempDir"] = m.tempDir;
  if (m.localHostName) root["localHostName"] = *m.localHostName;
  if (m.clock) root["clock"] = *m.clock;
  root["timerIntervalMs"] = m.timerIntervalMs;
  Json printers = Json::array();
  for (const SimPrinter& p : m.printers) {
    printers.push_back(Json{{"name", p.name},
                            {"serverName", p.serverName ? Json(*p.serverName) : Json(nullptr)},
                            {"shareName", p.shareName},
                            {"portName", p.portName},
                            {"driverName", p.driverName},
                            {"comment", p.comment},
                            {"location", p.location},
                            {"attributes", p.attributes}});
  }
  root["printers"] = printers;
  root["defaultPrinter"] = m.defaultPrinter ? Json(*m.defaultPrinter) : Json(nullptr);
  Json servers = Json::object();
  for (const auto& [name, server] : m.printServers) {
    Json queues = Json::array();
    for (const ServerQueue& q : server.queues)
      queues.push_back(q.driver ? Json{{"name", q.name}, {"driver", *q.driver}} : Json(q.name));
    servers[name] = Json{{"queues", queues}};
  }
  root["printServers"] = servers;
  root["drivers"] = m.drivers;
  root["ports"] = m.ports;
  Json winIni = Json::object();
  for (const auto& [section, keys] : m.winIni) {
    Json s = Json::object();
    for (const auto& [key, value] : keys) s[key] = value;
    winIni[section] = s;
  }
  root["winIni"] = winIni;
  Json registry = Json::object();
  for (const auto& [path, values] : m.registry) {
    Json k = Json::object();
    for (const auto& [name, value] : values) k[name] = RegistryValueToJson(value);
    registry[path] = k;
  }
  root["registry"] = registry;
  if (m.directory) {
    const SimDirectory& d = *m.directory;
    Json dir = Json{{"domain", d.domain}, {"namingContext", d.namingContext}};
    Json queues = Json::array();
    for (const PrintQueue& q : d.printQueues) {
      Json e = Json::object();
      if (q.name) e["name"] = *q.name;
      e["printShareName"] = q.printShareName;
      queues.push_back(e);
    }
    dir["printQueues"] = queues;
    dir["queryError"] = d.queryError
                            ? Json{{"number", d.queryError->number},
                                   {"description", d.queryError->description}}
                            : Json(nullptr);
    if (d.ldap) dir["ldap"] = *d.ldap;
    dir["sizeLimit"] = d.sizeLimit;
    root["directory"] = dir;
  }
  Json events = Json::array();
  for (const EventEntry& e : m.eventLog) {
    events.push_back(Json{{"source", e.source},
                          {"type", e.type},
                          {"category", e.category},
                          {"id", e.id},
                          {"strings", e.strings},
                          {"data", e.data}});
  }
  root["eventLog"] = events;
  root["readOnly"] = m.readOnly;
  Json faults = Json::array();
  for (const Fault& f : m.faults) {
    Json e = Json{{"call", f.call}};
    if (f.match) e["match"] = *f.match;
    e["result"] = f.result;
    e["lastError"] = f.lastError;
    e["skip"] = f.skip;
    if (f.times) e["times"] = *f.times;
    faults.push_back(e);
  }
  root["faults"] = faults;
  root["pointAndPrint"] = PointAndPrintToJson(m.pointAndPrint);
  if (m.smtp) root["smtp"] = Json(SmtpPeerJson(*m.smtp));
  return root;
}

}  // namespace sim
