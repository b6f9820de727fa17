#include "config/modINIDocument.h"

#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"

#include <functional>

INIDocumentRecord INIDocument;
bool INIWriteError = false;
bool INIReadError = false;

namespace {

constexpr DWORD kStringBuffer = 1000;
constexpr DWORD kScalarBuffer = 100;
constexpr DWORD kListBuffer = 10000;

// Reads one key into a buffer of size blanks. A positive last error marks
// the load as failed, yet the value is used. Trimming the blanks leaves the
// value and its NUL; the NUL is then cut. A longer value is cut at size - 1.
std::string ReadKey(const std::string& section, const std::string& key, DWORD size) {
  std::string buffer(size, ' ');
  Sys().profile->GetPrivateProfileStringA(section.c_str(), key.c_str(), nullptr, buffer.data(),
                                          size, INIFilePath.c_str());
  if (Sys().system->GetLastError() > 0) INIReadError = true;
  std::string value = TrimBlanks(buffer);
  if (!value.empty()) value.pop_back();
  return value;
}

// The pieces of a list key, split at every comma; an empty value gives none.
std::vector<std::string> ReadListKey(const std::string& section, const std::string& key,
                                     std::string& value) {
  value = ReadKey(section, key, kListBuffer);
  return Split(value, ",");
}

// Sizes a list from its first key: upper bound U for several pieces, 1 (a
// spare empty record) for one piece, 0 for none.
template <class T>
void SizeList(std::vector<T>& list, const std::vector<std::string>& pieces,
              const std::string& value) {
  const int upper = UBound(pieces);
  int bound;
  if (upper > 0)
    bound = upper;
  else if (!value.empty())
    bound = 1;
  else
    bound = 0;
  list.assign(static_cast<size_t>(bound) + 1, T{});
}

// Stores piece i into record i; a piece beyond the last record is the fatal
// "Subscript out of range".
template <class T>
void StorePieces(std::vector<T>& list, const std::vector<std::string>& pieces,
                 const std::function<void(T&, const std::string&)>& store) {
  for (int i = 0; i <= UBound(pieces); ++i) {
    if (i > UBound(list)) RaiseFatal(kErrSubscriptOutOfRange);
    store(list[static_cast<size_t>(i)], pieces[static_cast<size_t>(i)]);
  }
}

// A piece that is blank once trimmed gets the error text, any other the
// piece without its outer blanks.
std::string NameOrError(const std::string& piece, const char* errorText) {
  const std::string trimmed = TrimBlanks(piece);
  return trimmed.empty() ? std::string(errorText) : trimmed;
}

// Reads a list of records: the first key sizes it, the further keys only
// fill the records that exist.
template <class T>
void ReadList(
    std::vector<T>& list, const std::string& section,
    const std::vector<std::pair<std::string, std::function<void(T&, const std::string&)>>>& keys) {
  bool first = true;
  for (const auto& [key, store] : keys) {
    std::string value;
    const std::vector<std::string> pieces = ReadListKey(section, key, value);
    if (first) {
      SizeList(list, pieces, value);
      first = false;
    }
    StorePieces<T>(list, pieces, store);
  }
}

void EchoLine(const std::string& label, const std::string& value) { WriteDebug(label + value); }

void EchoBool(const std::string& label, bool value) { WriteDebug(label + BoolText(value)); }

}  // namespace

std::string ReadINIString(const std::string& section, const std::string& key) {
  return ReadKey(section, key, kStringBuffer);
}

// "True" anywhere, case-blind, then "False" anywhere; anything else is a
// read error.
bool ReadINIBoolean(const std::string& section, const std::string& key) {
  const std::string value = ReadKey(section, key, kScalarBuffer);
  if (ContainsNoCase(value, "True")) return true;
  if (ContainsNoCase(value, "False")) return false;
  INIReadError = true;
  return false;
}

// The leading number, rounded to 16 bits; fatal when it does not fit.
int16_t ReadINIInteger(const std::string& section, const std::string& key) {
  return CInt(Val(ReadKey(section, key, kScalarBuffer)));
}

void ReadServerDefinitions(std::vector<ServerDefinition>& list) {
  using Store = std::function<void(ServerDefinition&, const std::string&)>;
  ReadList<ServerDefinition>(list, "MANUAL DEFINITIONS SERVERS",
                             {{"FromServers", Store([](ServerDefinition& d, const std::string& p) {
                                 d.FromServer = NameOrError(p, "Error in From Server Name");
                               })},
                              {"ToServers", Store([](ServerDefinition& d, const std::string& p) {
                                 d.ToServer = NameOrError(p, "Error in To Server Name");
                               })}});
}

void ReadPrinterDefinitions(std::vector<PrinterDefinition>& list) {
  using Store = std::function<void(PrinterDefinition&, const std::string&)>;
  ReadList<PrinterDefinition>(
      list, "MANUAL DEFINITIONS PRINTERS",
      {{"FromPrinters", Store([](PrinterDefinition& d, const std::string& p) {
          d.FromPrinter = NameOrError(p, "Error in From Printer Name");
        })},
       {"ToPrinters", Store([](PrinterDefinition& d, const std::string& p) {
          d.ToPrinter = NameOrError(p, "Error in To Printer Name");
        })}});
}

// Sized by FromServers alone; read in the order FromServers, FromPrinters,
// ToServers, ToPrinters.
void ReadMixedDefinitions(std::vector<MixedDefinition>& list) {
  using Store = std::function<void(MixedDefinition&, const std::string&)>;
  ReadList<MixedDefinition>(list, "MANUAL DEFINITIONS MIXED",
                            {{"FromServers", Store([](MixedDefinition& d, const std::string& p) {
                                d.FromServer = NameOrError(p, "Error in From Server Name");
                              })},
                             {"FromPrinters", Store([](MixedDefinition& d, const std::string& p) {
                                d.FromPrinter = NameOrError(p, "Error in From Printer Name");
                              })},
                             {"ToServers", Store([](MixedDefinition& d, const std::string& p) {
                                d.ToServer = NameOrError(p, "Error in To Server Name");
                              })},
                             {"ToPrinters", Store([](MixedDefinition& d, const std::string& p) {
                                d.ToPrinter = NameOrError(p, "Error in To Printer Name");
                              })}});
}

// An address is tested trimmed but kept as it stands, outer blanks included.
void ReadEmailTo(std::vector<std::string>& list) {
  using Store = std::function<void(std::string&, const std::string&)>;
  ReadList<std::string>(list, "NOTIFICATION SMTP",
                        {{"EmailTo", Store([](std::string& e, const std::string& p) {
                            e = TrimBlanks(p).empty() ? std::string("Error in To Email Address")
                                                      : p;
                          })}});
}

void ReadPopulateDefinitions(std::vector<NameDefinition>& list) {
  using Store = std::function<void(NameDefinition&, const std::string&)>;
  ReadList<NameDefinition>(list, "POPULATE",
                           {{"ServerNames", Store([](NameDefinition& d, const std::string& p) {
                               d.ServerName = NameOrError(p, "Error in Server Name");
                             })},
                            {"PrinterNames", Store([](NameDefinition& d, const std::string& p) {
                               d.PrinterName = NameOrError(p, "Error in Printer Name");
                             })}});
}

// A blank prune piece just gives an empty field.
void ReadPruneDefinitions(std::vector<NameDefinition>& list) {
  using Store = std::function<void(NameDefinition&, const std::string&)>;
  ReadList<NameDefinition>(
      list, "PRUNE",
      {{"ServerNames",
        Store([](NameDefinition& d, const std::string& p) { d.ServerName = TrimBlanks(p); })},
       {"PrinterNames",
        Store([](NameDefinition& d, const std::string& p) { d.PrinterName = TrimBlanks(p); })}});
}

// Printer and driver names are tested untrimmed: only a piece with no
// character at all gets the error text, a piece of blanks stores "".
void ReadDriverDefinitions(std::vector<DriverDefinition>& list) {
  using Store = std::function<void(DriverDefinition&, const std::string&)>;
  ReadList<DriverDefinition>(
      list, "PRINTER_DRIVER",
      {{"PrinterName", Store([](DriverDefinition& d, const std::string& p) {
          d.PrinterName = p.empty() ? std::string("Error in Printer Name") : TrimBlanks(p);
        })},
       {"DriverName", Store([](DriverDefinition& d, const std::string& p) {
          d.DriverName = p.empty() ? std::string("Error in Driver Name") : TrimBlanks(p);
        })},
       {"DriverFileName",
        Store([](DriverDefinition& d, const std::string& p) { d.DriverFileName = TrimBlanks(p); })},
       {"PortName",
        Store([](DriverDefinition& d, const std::string& p) { d.PortName = TrimBlanks(p); })}});
}

namespace {

void DropOneTrailingBackslash(std::string& path) {
  if (!path.empty() && path.back() == '\\') path.pop_back();
}

}  // namespace

// Reads every key in the record's order. Any read error aborts the run at
// the end of the load; the echo shows what was read either way.
void LoadINIDocument() {
  INIDocumentRecord& d = INIDocument;
  d.ClearedOnLoad = false;

  d.UseActiveDirectory = ReadINIBoolean("GENERAL", "UseActiveDirectory");
  d.UseManualDefinitions = ReadINIBoolean("GENERAL", "UseManualDefinitions");
  d.AlwaysRun = ReadINIBoolean("GENERAL", "AlwaysRun");
  d.ShowProgress = ReadINIBoolean("GENERAL", "ShowProgress");
  d.DomainName = ReadINIString("ACTIVE DIRECTORY", "DomainName");
  ReadServerDefinitions(d.ServerDefinitions);
  ReadPrinterDefinitions(d.PrinterDefinitions);
  ReadMixedDefinitions(d.MixedDefinitions);
  d.UseSMTP = ReadINIBoolean("NOTIFICATION SMTP", "UseSMTP");
  d.SMTPServerNameOrIP = ReadINIString("NOTIFICATION SMTP", "SMTPServerNameOrIP");
  d.ServerPort = ReadINIString("NOTIFICATION SMTP", "ServerPort");
  d.EmailSubject = ReadINIString("NOTIFICATION SMTP", "EmailSubject");
  ReadEmailTo(d.EmailTo);
  d.EmailFrom = ReadINIString("NOTIFICATION SMTP", "EmailFrom");
  d.UseFileOutput = ReadINIBoolean("NOTIFICATION FILE OUTPUT", "UseFileOutput");
  d.FileOutputPath = ReadINIString("NOTIFICATION FILE OUTPUT", "FileOutputPath");
  DropOneTrailingBackslash(d.FileOutputPath);
  d.FileOutputName = ReadINIString("NOTIFICATION FILE OUTPUT", "FileOutputName");
  d.IncludeComputerName = ReadINIBoolean("NOTIFICATION FILE OUTPUT", "IncludeComputerName");
  d.IncludeOutcome = ReadINIBoolean("NOTIFICATION FILE OUTPUT", "IncludeOutcome");
  d.WriteToEventLog = ReadINIBoolean("NOTIFICATION FILE OUTPUT", "WriteToEventLog");
  d.UseClientPopup = ReadINIBoolean("NOTIFICATION CLIENT POP-UP", "UseClientPopup");
  d.UseSuccessClientPopup = ReadINIBoolean("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup");
  d.SuccessMessage = ReadINIString("NOTIFICATION CLIENT POP-UP", "SuccessMessage");
  d.UseFailureClientPopup = ReadINIBoolean("NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup");
  d.FailureMessage = ReadINIString("NOTIFICATION CLIENT POP-UP", "FailureMessage");
  d.DeploymentPath = ReadINIString("DEPLOYMENT", "DeploymentPath");
  DropOneTrailingBackslash(d.DeploymentPath);
  d.CreateWebLaunchPage = ReadINIBoolean("DEPLOYMENT", "CreateWebLaunchPage");
  d.CreateBatchFile = ReadINIBoolean("DEPLOYMENT", "CreateBatchFile");
  d.IncludeMDAC = ReadINIBoolean("DEPLOYMENT", "IncludeMDAC");
  d.MDACOption = ReadINIInteger("DEPLOYMENT", "MDACOption");
  ReadPopulateDefinitions(d.PopulateDefinitions);
  ReadPruneDefinitions(d.PruneDefinitions);
  d.DeleteADOrphans = ReadINIBoolean("PRUNE", "DeleteADOrphans");
  d.DeleteAllNonNetworked = ReadINIBoolean("PRUNE", "DeleteAllNonNetworked");
  ReadDriverDefinitions(d.DriverDefinitions);
  d.DriverSharePath = ReadINIString("PRINTER_DRIVER", "DriverSharePath");
  d.DefaultType = ReadINIInteger("SET_DEFAULT", "DefaultType");
  d.DefaultPrinterName = ReadINIString("SET_DEFAULT", "DefaultPrinterName");
  d.DebugOn = ReadINIBoolean("SUPPORT", "DebugOn");

  if (INIReadError) AbortStatus = true;

  EchoINIDocument();
}

// The whole record as understood, one line a value; lists walked from index
// 0, so spare and empty records show as bare labels.
void EchoINIDocument() {
  const INIDocumentRecord& d = INIDocument;
  EchoBool(">> UseActiveDirectory: ", d.UseActiveDirectory);
  EchoBool(">> UseManualDefinitions: ", d.UseManualDefinitions);
  EchoBool(">> AlwaysRun: ", d.AlwaysRun);
  EchoBool(">> ShowProgress: ", d.ShowProgress);
  EchoLine(">> DomainName: ", d.DomainName);

  WriteDebug(">> Server to Server Pairs <<");
  for (const ServerDefinition& s : d.ServerDefinitions) {
    EchoLine(">> From Server: ", s.FromServer);
    EchoLine(">> To Server: ", s.ToServer);
  }
  WriteDebug(">> Printer to Printer Pairs <<");
  for (const PrinterDefinition& p : d.PrinterDefinitions) {
    EchoLine(">> From Printer: ", p.FromPrinter);
    EchoLine(">> To Printer: ", p.ToPrinter);
  }
  WriteDebug(">> Mixed to Mixed Pairs <<");
  for (const MixedDefinition& m : d.MixedDefinitions) {
    EchoLine(">> From Server: ", m.FromServer);
    EchoLine(">> From Printer: ", m.FromPrinter);
    EchoLine(">> To Server: ", m.ToServer);
    EchoLine(">> To Printer: ", m.ToPrinter);
  }

  EchoBool(">> UseSMTP: ", d.UseSMTP);
  EchoLine(">> SMTPServerNameOrIP: ", d.SMTPServerNameOrIP);
  EchoLine(">> ServerPort: ", d.ServerPort);
  EchoLine(">> EmailSubject: ", d.EmailSubject);
  WriteDebug(">> Email To Addresses <<");
  for (const std::string& address : d.EmailTo) EchoLine(">> To Email Address: ", address);
  EchoLine(">> EmailFrom: ", d.EmailFrom);

  EchoBool(">> UseFileOutput: ", d.UseFileOutput);
  EchoLine(">> FileOutputPath: ", d.FileOutputPath);
  EchoLine(">> FileOutputName: ", d.FileOutputName);
  EchoBool(">> IncludeComputerName: ", d.IncludeComputerName);
  EchoBool(">> IncludeOutcome: ", d.IncludeOutcome);
  EchoBool(">> WriteToEventLog: ", d.WriteToEventLog);
  EchoBool(">> UseClientPopup: ", d.UseClientPopup);
  EchoBool(">> UseSuccessClientPopup: ", d.UseSuccessClientPopup);
  EchoLine(">> SuccessMessage: ", d.SuccessMessage);
  EchoBool(">> UseFailureClientPopup: ", d.UseFailureClientPopup);
  EchoLine(">> FailureMessage: ", d.FailureMessage);

  EchoLine(">> DeploymentPath: ", d.DeploymentPath);
  EchoBool(">> CreateHTMLLaunchPage: ", d.CreateWebLaunchPage);
  EchoBool(">> CreateBatchFile: ", d.CreateBatchFile);
  EchoBool(">> IncludeMDAC: ", d.IncludeMDAC);
  EchoLine(">> MDACOption: ", Str(d.MDACOption));

  WriteDebug(">> Populate <<");
  for (const NameDefinition& n : d.PopulateDefinitions) {
    EchoLine(">> Server Name: ", n.ServerName);
    EchoLine(">> Printer Name: ", n.PrinterName);
  }
  WriteDebug(">> Prune <<");
  for (const NameDefinition& n : d.PruneDefinitions) {
    EchoLine(">> Server Name: ", n.ServerName);
    EchoLine(">> Printer Name: ", n.PrinterName);
  }
  EchoBool(">> Delete AD Orphans: ", d.DeleteADOrphans);
  EchoBool(">> Delete All Non-Networked: ", d.DeleteAllNonNetworked);

  WriteDebug(">> Printer Driver <<");
  for (const DriverDefinition& v : d.DriverDefinitions) {
    EchoLine(">> Printer Name: ", v.PrinterName);
    EchoLine(">> Driver Name: ", v.DriverName);
    EchoLine(">> Driver File Name: ", v.DriverFileName);
    EchoLine(">> Port Name: ", v.PortName);
  }
  EchoLine(">> Driver Share Path: ", d.DriverSharePath);
  EchoBool(">> DebugOn: ", d.DebugOn);

  if (INIWriteError) {
    Sys().ui->MessageBox(
        "Unable to save INI file. Please check your permissions to the folder and file you "
        "are attempting to save.",
        "Write Error", MB_OK | MB_ICONHAND);
  }
}
