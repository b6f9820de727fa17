// The simulated print spooler: the user's printers, the print servers the
// client can reach, drivers, ports and the default printer of each
// generation of Windows, all kept in the machine of sim::Current(). Names are
// machine text; the A-calls give and take them in the ANSI code page.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"
#include "platform/sim/SpoolerErrors.h"

#include <cstddef>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

// <windows.h> names a Win32 call OpenPrinter; here it is the record below.
#undef OpenPrinter

namespace sim {

namespace {

// Last-error codes the portable header does not name.
constexpr DWORD kErrorAlreadyExists = 183;
constexpr DWORD kErrorNullRefPointer = 1780;   // a required out-pointer is null
constexpr DWORD kErrorPrinterDeleted = 1905;

// Access rights of a printer handle.
constexpr DWORD kDelete = 0x00010000;
constexpr DWORD kReadControl = 0x00020000;
constexpr DWORD kMaximumAllowed = 0x02000000;
constexpr DWORD kGenericAll = 0x10000000;
constexpr DWORD kGenericExecute = 0x20000000;
constexpr DWORD kGenericWrite = 0x40000000;
constexpr DWORD kGenericRead = 0x80000000;
constexpr DWORD kPrinterAccessUse = 0x00000008;
// What a local printer's default security grants everyone: print.
constexpr DWORD kPrinterRead = kReadControl | kPrinterAccessUse;

// An open printer handle: the printer it stands for and the name it was
// opened with (faults on calls taking the handle match that name).
struct OpenPrinter {
  const Context* context = nullptr;
  std::string openedName;
  std::string printerName;
  DWORD access = PRINTER_ALL_ACCESS;   // the rights granted
};

std::map<uintptr_t, OpenPrinter>& Handles() {
  static std::map<uintptr_t, OpenPrinter> handles;
  return handles;
}

nlohmann::json TextOrNull(const char* text) {
  return text ? nlohmann::json(FromAnsi(text)) : nlohmann::json(nullptr);
}

SimPrinter* FindPrinter(Context& c, const std::string& name) {
  for (SimPrinter& p : c.machine.printers)
    if (SameNoCase(p.name, name)) return &p;
  return nullptr;
}

bool IsConnection(const SimPrinter& p) { return p.serverName && !p.serverName->empty(); }

// Handle values are never given twice in a process, so a handle kept from an
// earlier client never passes for one of a later client.
uintptr_t NewHandle(Context& c, const std::string& openedName, const std::string& printerName,
                    DWORD access = PRINTER_ALL_ACCESS) {
  static uintptr_t next = 0x5000;
  uintptr_t value = next;
  next += 4;
  Handles()[value] = OpenPrinter{&c, openedName, printerName, access};
  return value;
}

// The rights asked for, generic ones mapped to a printer's: null defaults
// ask for the right to print.
DWORD AskedAccess(const Context& c, const PRINTER_DEFAULTSA* defaults) {
  if (!defaults) return kPrinterAccessUse;
  DWORD asked = defaults->DesiredAccess;
  if (asked & kGenericAll) asked |= PRINTER_ALL_ACCESS;
  if (asked & (kGenericRead | kGenericWrite | kGenericExecute)) asked |= kPrinterRead;
  if (asked & kMaximumAllowed) asked |= c.StandardUser() ? kPrinterRead : PRINTER_ALL_ACCESS;
  return asked & ~(kGenericAll | kGenericRead | kGenericWrite | kGenericExecute | kMaximumAllowed);
}

// The open handle behind printer, or null when it is not one of this
// client's open handles.
OpenPrinter* FindHandle(Context& c, HANDLE printer) {
  auto it = Handles().find(reinterpret_cast<uintptr_t>(printer));
  if (it == Handles().end() || it->second.context != &c) return nullptr;
  return &it->second;
}

std::string OpenedName(Context& c, HANDLE printer) {
  OpenPrinter* open = FindHandle(c, printer);
  return open ? open->openedName : std::string();
}

// The Windows 9x default: bit 0x4 on this printer and on no other.
void SetDefaultAttribute(Context& c, const SimPrinter& target) {
  for (SimPrinter& p : c.machine.printers) {
    if (&p == &target) p.attributes |= PRINTER_ATTRIBUTE_DEFAULT;
    else p.attributes &= ~static_cast<uint32_t>(PRINTER_ATTRIBUTE_DEFAULT);
  }
}

std::vector<std::pair<std::string, std::string>>& WindowsSection(Context& c) {
  for (auto& [section, keys] : c.machine.winIni)
    if (SameNoCase(section, "Windows")) return keys;
  c.machine.winIni.emplace_back("Windows", std::vector<std::pair<std::string, std::string>>{});
  return c.machine.winIni.back().second;
}

// Makes the printer the default the way the machine's generation keeps it.
void MakeDefault(Context& c, const SimPrinter& printer) {
  const Machine& m = c.machine;
  if (m.platformId == 1) {
    SetDefaultAttribute(c, printer);
  } else if (m.platformId == 2 && m.majorVersion < 5) {
    std::string device = printer.name + ",winspool," + printer.portName;
    auto& keys = WindowsSection(c);
    for (auto& [key, value] : keys)
      if (SameNoCase(key, "device")) {
        value = device;
        return;
      }
    keys.emplace_back("device", device);
  } else {
    c.machine.defaultPrinter = printer.name;
  }
}

// A removed printer that was the default leaves the user without one.
void ForgetDefault(Context& c, const std::string& removedName) {
  std::optional<std::string> current = c.CurrentDefault();
  if (!current || !SameNoCase(*current, removedName)) return;
  const Machine& m = c.machine;
  if (m.platformId == 2 && m.majorVersion < 5) {
    auto& keys = WindowsSection(c);
    for (auto it = keys.begin(); it != keys.end(); ++it)
      if (SameNoCase(it->first, "device")) {
        keys.erase(it);
        break;
      }
  } else if (m.platformId != 1) {
    c.machine.defaultPrinter.reset();
  }
}

void RemovePrinter(Context& c, const SimPrinter* printer) {
  std::string name = printer->name;
  auto& list = c.machine.printers;
  list.erase(list.begin() + (printer - list.data()));
  ForgetDefault(c, name);
}

// "\\\\S\\Q" split into S and Q; false for any other form.
bool SplitConnectionName(const std::string& name, std::string& server, std::string& queue) {
  if (name.size() < 5 || name[0] != '\\' || name[1] != '\\') return false;
  size_t slash = name.find('\\', 2);
  if (slash == std::string::npos || slash == 2 || slash + 1 >= name.size()) return false;
  if (name.find('\\', slash + 1) != std::string::npos) return false;
  server = name.substr(2, slash - 2);
  queue = name.substr(slash + 1);
  return true;
}

// The print server of that name (case-blind), or end().
std::map<std::string, PrintServer>::const_iterator FindServer(const Context& c,
                                                             const std::string& server) {
  const auto& servers = c.machine.printServers;
  for (auto it = servers.begin(); it != servers.end(); ++it)
    if (SameNoCase(it->first, server)) return it;
  return servers.end();
}

// The queue of that name on that server (case-blind), or null.
const ServerQueue* FindQueue(const Context& c, const std::string& server, const std::string& queue) {
  const auto found = FindServer(c, server);
  if (found == c.machine.printServers.end()) return nullptr;
  for (const ServerQueue& q : found->second.queues)
    if (SameNoCase(q.name, queue)) return &q;
  return nullptr;
}

// Whether the list holds name, case-blind: the client's drivers and ports.
bool Listed(const std::vector<std::string>& list, const std::string& name) {
  for (const std::string& entry : list)
    if (SameNoCase(entry, name)) return true;
  return false;
}

// The strings of one PRINTER_INFO_2A record in member order; nullopt is a
// null pointer.
struct InfoStrings {
  std::optional<std::string> server;
  std::string printer, share, port, driver, comment, location;
  std::string sepFile, printProcessor = "winprint", datatype = "RAW", parameters;
};

// The strings in the ANSI code page, as the A-calls give them.
InfoStrings StringsOf(const SimPrinter& p) {
  InfoStrings s;
  if (p.serverName) s.server = ToAnsi(*p.serverName);
  s.printer = ToAnsi(p.name);
  s.share = ToAnsi(p.shareName);
  s.port = ToAnsi(p.portName);
  s.driver = ToAnsi(p.driverName);
  s.comment = ToAnsi(p.comment);
  s.location = ToAnsi(p.location);
  return s;
}

DWORD StringBytes(const InfoStrings& s) {
  size_t total = 0;
  if (s.server) total += s.server->size() + 1;
  for (const std::string* text : {&s.printer, &s.share, &s.port, &s.driver, &s.comment,
                                  &s.location, &s.sepFile, &s.printProcessor, &s.datatype,
                                  &s.parameters})
    total += text->size() + 1;
  return static_cast<DWORD>(total);
}

// Lays out records as the spooler does: the PRINTER_INFO_2A records one
// after the other at the start of the buffer, then the strings they point
// into, record by record in member order.
void FillPrinterInfo(const std::vector<const SimPrinter*>& printers, const std::vector<InfoStrings>& texts,
                     LPBYTE buffer) {
  LPBYTE strings = buffer + printers.size() * sizeof(PRINTER_INFO_2A);
  auto put = [&strings](const std::string& text) {
    LPSTR at = reinterpret_cast<LPSTR>(strings);
    CopyWithNul(at, text);
    strings += text.size() + 1;
    return at;
  };
  for (size_t i = 0; i < printers.size(); ++i) {
    const InfoStrings& s = texts[i];
    PRINTER_INFO_2A info;
    std::memset(&info, 0, sizeof info);
    info.pServerName = s.server ? put(*s.server) : nullptr;
    info.pPrinterName = put(s.printer);
    info.pShareName = put(s.share);
    info.pPortName = put(s.port);
    info.pDriverName = put(s.driver);
    info.pComment = put(s.comment);
    info.pLocation = put(s.location);
    info.pSepFile = put(s.sepFile);
    info.pPrintProcessor = put(s.printProcessor);
    info.pDatatype = put(s.datatype);
    info.pParameters = put(s.parameters);
    info.Attributes = printers[i]->attributes;
    info.Priority = 1;
    std::memcpy(buffer + i * sizeof(PRINTER_INFO_2A), &info, sizeof info);
  }
}

// The queues a print server shares, as records of its printers: the name
// "\\\\SERVER\\queue", the queue as share name, the driver it names.
std::vector<SimPrinter> ServerPrinters(const std::string& serverName, const PrintServer& server) {
  std::vector<SimPrinter> printers;
  for (const ServerQueue& queue : server.queues) {
    SimPrinter p;
    p.name = "\\\\" + serverName + "\\" + queue.name;
    p.serverName = "\\\\" + serverName;
    p.shareName = queue.name;
    p.driverName = queue.driver.value_or("");
    p.attributes = PRINTER_ATTRIBUTE_SHARED;
    printers.push_back(p);
  }
  return printers;
}

// Lays out records of one string each (DRIVER_INFO_1A, PORT_INFO_1A) as the
// spooler does: the records, then their strings (in the code page). FALSE with
// ERROR_INSUFFICIENT_BUFFER and the size needed when the buffer is short.
BOOL FillNames(Context& c, const std::vector<std::string>& names, LPBYTE buffer, DWORD size,
               LPDWORD needed, LPDWORD returned) {
  size_t total = names.size() * sizeof(LPSTR);
  for (const std::string& name : names) total += name.size() + 1;
  *needed = static_cast<DWORD>(total);
  *returned = 0;
  if (names.empty()) return TRUE;
  if (!buffer || size < total) {
    c.lastError = ERROR_INSUFFICIENT_BUFFER;
    return FALSE;
  }
  LPBYTE strings = buffer + names.size() * sizeof(LPSTR);
  for (size_t i = 0; i < names.size(); ++i) {
    LPSTR at = reinterpret_cast<LPSTR>(strings);
    CopyWithNul(at, names[i]);
    strings += names[i].size() + 1;
    std::memcpy(buffer + i * sizeof(LPSTR), &at, sizeof at);
  }
  *returned = static_cast<DWORD>(names.size());
  return TRUE;
}

std::vector<InfoStrings> StringsOf(const std::vector<const SimPrinter*>& printers) {
  std::vector<InfoStrings> texts;
  for (const SimPrinter* p : printers) texts.push_back(StringsOf(*p));
  return texts;
}

DWORD NeededFor(const std::vector<InfoStrings>& texts) {
  DWORD total = 0;
  for (const InfoStrings& s : texts) total += static_cast<DWORD>(sizeof(PRINTER_INFO_2A)) + StringBytes(s);
  return total;
}

class SimSpooler : public platform::Spooler {
 public:
  bool UserPrinters(std::vector<std::string>& deviceNames) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("UserPrinters", std::string())) return f->result != 0;
    deviceNames.clear();
    for (const SimPrinter& p : c.machine.printers) deviceNames.push_back(ToAnsi(p.name));
    return true;
  }

  BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, PRINTER_DEFAULTSA* defaults) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("OpenPrinterA", ArgText(printerName))) {
      if (f->result == 0 && printer) *printer = nullptr;
      return static_cast<BOOL>(f->result);
    }
    if (!printer) return Fail(c, ERROR_INVALID_PARAMETER);
    *printer = nullptr;
    // A null name stands for the local print server, which is not modelled.
    const std::string name = ArgText(printerName);
    SimPrinter* p = printerName ? FindPrinter(c, name) : nullptr;
    if (!p) return Fail(c, ERROR_INVALID_PRINTER_NAME);
    DWORD access = AskedAccess(c, defaults);
    // A local printer grants a standard user the right to print and no more;
    // a connection's rights are its server's.
    if (c.StandardUser() && !IsConnection(*p) && (access & ~kPrinterRead))
      return Fail(c, ERROR_ACCESS_DENIED);
    *printer = reinterpret_cast<HANDLE>(NewHandle(c, name, p->name, access));
    return TRUE;
  }

  BOOL ClosePrinter(HANDLE printer) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("ClosePrinter", OpenedName(c, printer)))
      return static_cast<BOOL>(f->result);
    if (!FindHandle(c, printer)) return Fail(c, ERROR_INVALID_HANDLE);
    Handles().erase(reinterpret_cast<uintptr_t>(printer));
    return TRUE;
  }

  BOOL GetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD size,
                   LPDWORD needed) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetPrinterA", OpenedName(c, printer)))
      return static_cast<BOOL>(f->result);
    SimPrinter* p = nullptr;
    if (DWORD error = PrinterOf(c, printer, p)) return Fail(c, error);
    if (level != 2) return Fail(c, ERROR_INVALID_LEVEL);
    if (!needed) return Fail(c, kErrorNullRefPointer);
    std::vector<const SimPrinter*> one{p};
    const std::vector<InfoStrings> texts = StringsOf(one);
    *needed = NeededFor(texts);
    if (!buffer || size < *needed) return Fail(c, ERROR_INSUFFICIENT_BUFFER);
    FillPrinterInfo(one, texts, buffer);
    return TRUE;
  }

  BOOL SetPrinterA(HANDLE printer, DWORD level, LPBYTE buffer, DWORD command) override {
    Context& c = Current();
    c.lastError = 0;
    std::string opened = OpenedName(c, printer);
    nlohmann::json args = {opened, level};
    PRINTER_INFO_2A info;
    std::memset(&info, 0, sizeof info);
    if (level == 2 && buffer) {
      std::memcpy(&info, buffer, sizeof info);
      args.push_back(info.Attributes);
    }
    args.push_back(command);
    BOOL result = SetPrinter(c, printer, level, buffer, info, command);
    c.RecordSpoolerCall("SetPrinterA", args, result);
    return result;
  }

  BOOL EnumPrintersA(DWORD flags, LPSTR name, DWORD level, LPBYTE buffer, DWORD size,
                     LPDWORD needed, LPDWORD returned) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("EnumPrintersA", ArgText(name)))
      return static_cast<BOOL>(f->result);
    if (!needed || !returned) return Fail(c, kErrorNullRefPointer);
    *returned = 0;
    if (level != 2) return Fail(c, ERROR_INVALID_LEVEL);

    std::vector<const SimPrinter*> list;
    std::vector<SimPrinter> shared;
    if ((flags & PRINTER_ENUM_NAME) && name && *name) {
      // A print server's shared queues: the name is "\\\\SERVER".
      const std::string server = ArgText(name);
      if (server.size() < 3 || server.compare(0, 2, "\\\\") != 0 || server.find('\\', 2) != std::string::npos)
        return Fail(c, ERROR_INVALID_NAME);
      const auto known = FindServer(c, server.substr(2));
      if (known == c.machine.printServers.end()) return Fail(c, RPC_S_SERVER_UNAVAILABLE);
      shared = ServerPrinters(known->first, known->second);
      for (const SimPrinter& p : shared) list.push_back(&p);
    } else if (flags & PRINTER_ENUM_DEFAULT) {
      std::optional<std::string> current = c.CurrentDefault();
      if (current)
        if (const SimPrinter* p = FindPrinter(c, *current)) list.push_back(p);
    } else {
      for (const SimPrinter& p : c.machine.printers) {
        bool wanted = IsConnection(p) ? (flags & PRINTER_ENUM_CONNECTIONS) != 0
                                      : (flags & PRINTER_ENUM_LOCAL) != 0;
        if (wanted) list.push_back(&p);
      }
    }
    const std::vector<InfoStrings> texts = StringsOf(list);
    *needed = NeededFor(texts);
    if (list.empty()) return TRUE;
    if (!buffer || size < *needed) return Fail(c, ERROR_INSUFFICIENT_BUFFER);
    FillPrinterInfo(list, texts, buffer);
    *returned = static_cast<DWORD>(list.size());
    return TRUE;
  }

  BOOL GetDefaultPrinterA(LPSTR buffer, LPDWORD size) override {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault("GetDefaultPrinterA", std::string()))
      return static_cast<BOOL>(f->result);
    if (!size) return Fail(c, ERROR_INVALID_PARAMETER);
    std::optional<std::string> current = c.CurrentDefault();
    if (!current) return Fail(c, ERROR_FILE_NOT_FOUND);
    const std::string name = ToAnsi(*current);
    DWORD length = static_cast<DWORD>(name.size() + 1);
    if (!buffer || *size < length) {
      *size = length;
      return Fail(c, ERROR_INSUFFICIENT_BUFFER);
    }
    CopyWithNul(buffer, name);
    *size = length;
    return TRUE;
  }

  BOOL SetDefaultPrinterA(LPCSTR printerName) override {
    Context& c = Current();
    c.lastError = 0;
    BOOL result = SetDefault(c, printerName);
    c.RecordSpoolerCall("SetDefaultPrinterA", nlohmann::json::array({TextOrNull(printerName)}),
                        result);
    return result;
  }

  BOOL AddPrinterConnectionA(LPSTR name) override {
    Context& c = Current();
    c.lastError = 0;
    BOOL result = AddConnection(c, ArgText(name));
    c.RecordSpoolerCall("AddPrinterConnectionA", nlohmann::json::array({TextOrNull(name)}),
                        result);
    return result;
  }

  BOOL DeletePrinterConnectionA(LPSTR name) override {
    Context& c = Current();
    c.lastError = 0;
    BOOL result = DeleteConnection(c, ArgText(name));
    c.RecordSpoolerCall("DeletePrinterConnectionA", nlohmann::json::array({TextOrNull(name)}),
                        result);
    return result;
  }

  BOOL DeletePrinter(HANDLE printer) override {
    Context& c = Current();
    c.lastError = 0;
    std::string opened = OpenedName(c, printer);
    BOOL result = Delete(c, printer, opened);
    c.RecordSpoolerCall("DeletePrinter", nlohmann::json::array({opened}), result);
    return result;
  }

  BOOL AddPrinterDriverA(LPSTR name, DWORD level, LPBYTE driverInfo) override {
    Context& c = Current();
    c.lastError = 0;
    DRIVER_INFO_2A info;
    std::memset(&info, 0, sizeof info);
    if (level == 2 && driverInfo) std::memcpy(&info, driverInfo, sizeof info);
    nlohmann::json args = {TextOrNull(name), level, TextOrNull(info.pName)};
    BOOL result = AddDriver(c, name, level, driverInfo, info);
    c.RecordSpoolerCall("AddPrinterDriverA", args, result);
    return result;
  }

  HANDLE AddPrinterA(LPSTR name, DWORD level, LPBYTE printerInfo) override {
    Context& c = Current();
    c.lastError = 0;
    PRINTER_INFO_2A info;
    std::memset(&info, 0, sizeof info);
    if (level == 2 && printerInfo) std::memcpy(&info, printerInfo, sizeof info);
    nlohmann::json args = {TextOrNull(name), level, TextOrNull(info.pPrinterName),
                           TextOrNull(info.pPortName), TextOrNull(info.pDriverName)};
    HANDLE handle = AddPrinter(c, name, level, printerInfo, info);
    c.RecordSpoolerCall("AddPrinterA", args, handle ? 1 : 0);
    return handle;
  }

  // The client's own drivers, of the one environment it has.
  BOOL EnumPrinterDriversA(LPSTR name, LPSTR environment, DWORD level, LPBYTE buffer, DWORD size,
                           LPDWORD needed, LPDWORD returned) override {
    return ListLocal("EnumPrinterDriversA", &Machine::drivers, name, level, buffer, size, needed, returned);
  }

  BOOL EnumPortsA(LPSTR name, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                  LPDWORD returned) override {
    return ListLocal("EnumPortsA", &Machine::ports, name, level, buffer, size, needed, returned);
  }

  BOOL AddPortA(LPSTR name, HWND window, LPSTR monitorName) override {
    Context& c = Current();
    c.lastError = 0;
    BOOL result = AddPort(c, name, monitorName);
    c.RecordSpoolerCall("AddPortA", nlohmann::json::array({TextOrNull(name), TextOrNull(monitorName)}),
                        result);
    return result;
  }

 private:
  // A list of names of the client at level 1 (EnumPrinterDriversA,
  // EnumPortsA): the local computer's only.
  static BOOL ListLocal(const char* call, std::vector<std::string> Machine::*list, LPSTR name,
                        DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
    Context& c = Current();
    c.lastError = 0;
    if (const Fault* f = c.TakeFault(call, ArgText(name))) return static_cast<BOOL>(f->result);
    if (!needed || !returned) return Fail(c, kErrorNullRefPointer);
    *returned = 0;
    if (level != 1) return Fail(c, ERROR_INVALID_LEVEL);
    if (name && *name) return Fail(c, ERROR_INVALID_NAME);
    std::vector<std::string> names;
    for (const std::string& item : c.machine.*list) names.push_back(ToAnsi(item));
    return FillNames(c, names, buffer, size, needed, returned);
  }

  static BOOL Fail(Context& c, DWORD error) {
    c.lastError = error;
    return FALSE;
  }

  // 0 and the printer behind an open handle, or the error of the call.
  static DWORD PrinterOf(Context& c, HANDLE printer, SimPrinter*& found) {
    OpenPrinter* open = FindHandle(c, printer);
    if (!open) return ERROR_INVALID_HANDLE;
    found = FindPrinter(c, open->printerName);
    return found ? 0 : kErrorPrinterDeleted;
  }

  static BOOL SetPrinter(Context& c, HANDLE printer, DWORD level, LPBYTE buffer,
                         const PRINTER_INFO_2A& info, DWORD command) {
    if (const Fault* f = c.TakeFault("SetPrinterA", OpenedName(c, printer)))
      return static_cast<BOOL>(f->result);
    SimPrinter* p = nullptr;
    if (DWORD error = PrinterOf(c, printer, p)) return Fail(c, error);
    if (level != 2) return Fail(c, ERROR_INVALID_LEVEL);
    if (!buffer || command != 0) return Fail(c, ERROR_INVALID_PARAMETER);
    p->attributes = info.Attributes;
    if (c.machine.platformId == 1 && (info.Attributes & PRINTER_ATTRIBUTE_DEFAULT))
      SetDefaultAttribute(c, *p);
    return TRUE;
  }

  static BOOL SetDefault(Context& c, LPCSTR printerName) {
    if (const Fault* f = c.TakeFault("SetDefaultPrinterA", ArgText(printerName)))
      return static_cast<BOOL>(f->result);
    if (!printerName || !*printerName) {
      // No name: the default stays; without one the first printer becomes it.
      if (c.CurrentDefault()) return TRUE;
      if (c.machine.printers.empty()) return Fail(c, ERROR_NO_MORE_ITEMS);
      MakeDefault(c, c.machine.printers.front());
      return TRUE;
    }
    SimPrinter* p = FindPrinter(c, ArgText(printerName));
    if (!p) return Fail(c, ERROR_INVALID_PRINTER_NAME);
    MakeDefault(c, *p);
    return TRUE;
  }

  static BOOL AddConnection(Context& c, const std::string& name) {
    if (const Fault* f = c.TakeFault("AddPrinterConnectionA", name))
      return static_cast<BOOL>(f->result);
    std::string server, queue;
    const ServerQueue* q = nullptr;
    if (SplitConnectionName(name, server, queue)) q = FindQueue(c, server, queue);
    if (!q) return Fail(c, ERROR_INVALID_PRINTER_NAME);
    if (FindPrinter(c, name)) return TRUE;
    // A driver the client lacks comes from the server with the connection.
    if (q->driver && !Listed(c.machine.drivers, *q->driver)) {
      if (c.StandardUser() && DriverInstallRefused(c.machine)) return Fail(c, kErrorPrinterDriverDownloadNeeded);
      c.machine.drivers.push_back(*q->driver);
    }
    SimPrinter p;
    p.name = name;
    p.serverName = "\\\\" + server;
    p.shareName = queue;
    if (q->driver) p.driverName = *q->driver;
    c.machine.printers.push_back(p);
    return TRUE;
  }

  static BOOL DeleteConnection(Context& c, const std::string& name) {
    if (const Fault* f = c.TakeFault("DeletePrinterConnectionA", name))
      return static_cast<BOOL>(f->result);
    for (const SimPrinter& p : c.machine.printers)
      if (IsConnection(p) && SameNoCase(p.name, name)) {
        RemovePrinter(c, &p);
        return TRUE;
      }
    return Fail(c, ERROR_INVALID_PRINTER_NAME);
  }

  static BOOL Delete(Context& c, HANDLE printer, const std::string& opened) {
    if (const Fault* f = c.TakeFault("DeletePrinter", opened)) return static_cast<BOOL>(f->result);
    SimPrinter* p = nullptr;
    if (DWORD error = PrinterOf(c, printer, p)) return Fail(c, error);
    // A standard user's handle holds the right to print, not to delete.
    if (c.StandardUser() && !(FindHandle(c, printer)->access & kDelete)) return Fail(c, ERROR_ACCESS_DENIED);
    RemovePrinter(c, p);
    return TRUE;
  }

  static BOOL AddDriver(Context& c, LPSTR name, DWORD level, LPBYTE driverInfo,
                        const DRIVER_INFO_2A& info) {
    if (const Fault* f = c.TakeFault("AddPrinterDriverA",
                                     std::vector<std::string>{ArgText(name), ArgText(info.pName)}))
      return static_cast<BOOL>(f->result);
    if (level != 2) return Fail(c, ERROR_INVALID_LEVEL);
    if (!driverInfo || !info.pName || !*info.pName) return Fail(c, ERROR_INVALID_PARAMETER);
    if (c.StandardUser()) return Fail(c, ERROR_ACCESS_DENIED);
    const std::string driverName = ArgText(info.pName);
    if (Listed(c.machine.drivers, driverName)) return Fail(c, ERROR_PRINTER_DRIVER_ALREADY_INSTALLED);
    c.machine.drivers.push_back(driverName);
    return TRUE;
  }

  static HANDLE AddPrinter(Context& c, LPSTR name, DWORD level, LPBYTE printerInfo,
                           const PRINTER_INFO_2A& info) {
    if (const Fault* f = c.TakeFault("AddPrinterA", std::vector<std::string>{
                                                        ArgText(name), ArgText(info.pPrinterName)}))
      return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(f->result));
    if (level != 2) return FailHandle(c, ERROR_INVALID_LEVEL);
    if (!printerInfo) return FailHandle(c, ERROR_INVALID_PARAMETER);
    if (c.StandardUser()) return FailHandle(c, ERROR_ACCESS_DENIED);
    std::string printerName = ArgText(info.pPrinterName);
    if (printerName.empty()) return FailHandle(c, ERROR_INVALID_PRINTER_NAME);
    if (FindPrinter(c, printerName)) return FailHandle(c, ERROR_PRINTER_ALREADY_EXISTS);
    if (!Listed(c.machine.drivers, ArgText(info.pDriverName))) return FailHandle(c, ERROR_UNKNOWN_PRINTER_DRIVER);
    if (!Listed(c.machine.ports, ArgText(info.pPortName))) return FailHandle(c, ERROR_UNKNOWN_PORT);

    SimPrinter p;
    p.name = printerName;
    p.shareName = ArgText(info.pShareName);
    p.portName = ArgText(info.pPortName);
    p.driverName = ArgText(info.pDriverName);
    p.comment = ArgText(info.pComment);
    p.location = ArgText(info.pLocation);
    p.attributes = info.Attributes;
    c.machine.printers.push_back(p);
    return reinterpret_cast<HANDLE>(NewHandle(c, printerName, printerName));
  }

  static HANDLE FailHandle(Context& c, DWORD error) {
    c.lastError = error;
    return nullptr;
  }

  static BOOL AddPort(Context& c, LPSTR name, LPSTR monitorName) {
    if (const Fault* f = c.TakeFault("AddPortA", std::vector<std::string>{ArgText(name),
                                                                          ArgText(monitorName)}))
      return static_cast<BOOL>(f->result);
    std::string port = ArgText(monitorName);
    if (port.empty()) return Fail(c, ERROR_INVALID_PARAMETER);
    if (c.StandardUser()) return Fail(c, ERROR_ACCESS_DENIED);
    if (Listed(c.machine.ports, port)) return Fail(c, kErrorAlreadyExists);
    c.machine.ports.push_back(port);
    return TRUE;
  }
};

}  // namespace

platform::Spooler& SpoolerService() {
  static SimSpooler service;
  return service;
}

}  // namespace sim
