// The INI file read into the one configuration record.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ServerDefinition {
  std::string FromServer;
  std::string ToServer;
};

struct PrinterDefinition {
  std::string FromPrinter;
  std::string ToPrinter;
};

struct MixedDefinition {
  std::string FromServer;
  std::string FromPrinter;
  std::string ToPrinter;
  std::string ToServer;
};

struct NameDefinition {
  std::string ServerName;
  std::string PrinterName;
};

struct DriverDefinition {
  std::string PrinterName;
  std::string DriverName;
  std::string DriverFileName;
  std::string PortName;
};

// The fields in declared order, which is the order of the load.
struct INIDocumentRecord {
  bool ClearedOnLoad = false;
  bool UseActiveDirectory = false;
  bool UseManualDefinitions = false;
  bool AlwaysRun = false;
  bool ShowProgress = false;
  std::string DomainName;
  std::vector<ServerDefinition> ServerDefinitions;
  std::vector<PrinterDefinition> PrinterDefinitions;
  std::vector<MixedDefinition> MixedDefinitions;
  bool UseSMTP = false;
  std::string SMTPServerNameOrIP;
  std::string ServerPort;
  std::string EmailSubject;
  std::vector<std::string> EmailTo;
  std::string EmailFrom;
  bool UseFileOutput = false;
  std::string FileOutputPath;
  std::string FileOutputName;
  bool IncludeComputerName = false;
  bool IncludeOutcome = false;
  bool WriteToEventLog = false;
  bool UseClientPopup = false;
  bool UseSuccessClientPopup = false;
  std::string SuccessMessage;
  bool UseFailureClientPopup = false;
  std::string FailureMessage;
  std::string DeploymentPath;
  bool CreateWebLaunchPage = false;
  bool CreateBatchFile = false;
  bool IncludeMDAC = false;
  int16_t MDACOption = 0;
  std::vector<NameDefinition> PopulateDefinitions;
  std::vector<NameDefinition> PruneDefinitions;
  bool DeleteADOrphans = false;
  bool DeleteAllNonNetworked = false;
  std::vector<DriverDefinition> DriverDefinitions;
  std::string DriverSharePath;
  int16_t DefaultType = 0;
  std::string DefaultPrinterName;
  bool DebugOn = false;
};

extern INIDocumentRecord INIDocument;
// Tested at the end of the echo; nothing sets it.
extern bool INIWriteError;
// Set by the readers; tested once at the end of the load.
extern bool INIReadError;

void LoadINIDocument();
std::string ReadINIString(const std::string& section, const std::string& key);
bool ReadINIBoolean(const std::string& section, const std::string& key);
int16_t ReadINIInteger(const std::string& section, const std::string& key);

void ReadServerDefinitions(std::vector<ServerDefinition>& list);
void ReadPrinterDefinitions(std::vector<PrinterDefinition>& list);
void ReadMixedDefinitions(std::vector<MixedDefinition>& list);
void ReadEmailTo(std::vector<std::string>& list);
void ReadPopulateDefinitions(std::vector<NameDefinition>& list);
void ReadPruneDefinitions(std::vector<NameDefinition>& list);
void ReadDriverDefinitions(std::vector<DriverDefinition>& list);

void EchoINIDocument();
