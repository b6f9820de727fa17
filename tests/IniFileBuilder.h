// Test helper: an INI file built section by section, and a valid base file.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace testini {

// An INI file built section by section, in order.
struct IniFile {
  std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> sections;

  IniFile& Set(const std::string& section, const std::string& key, const std::string& value) {
    for (auto& [name, keys] : sections) {
      if (name != section) continue;
      for (auto& [k, v] : keys) {
        if (k == key) {
          v = value;
          return *this;
        }
      }
      keys.emplace_back(key, value);
      return *this;
    }
    sections.push_back({section, {{key, value}}});
    return *this;
  }

  IniFile& Remove(const std::string& section, const std::string& key) {
    for (auto& [name, keys] : sections) {
      if (name != section) continue;
      for (auto it = keys.begin(); it != keys.end(); ++it) {
        if (it->first == key) {
          keys.erase(it);
          return *this;
        }
      }
    }
    return *this;
  }

  IniFile& RemoveSection(const std::string& section) {
    for (auto it = sections.begin(); it != sections.end(); ++it) {
      if (it->first == section) {
        sections.erase(it);
        break;
      }
    }
    return *this;
  }

  std::string Text() const {
    std::string text;
    for (const auto& [name, keys] : sections) {
      text += "[" + name + "]\r\n";
      for (const auto& [k, v] : keys) text += k + "=" + v + "\r\n";
    }
    return text;
  }
};

// Every Boolean key present and False, DebugOn True.
inline IniFile ValidIni() {
  IniFile ini;
  ini.Set("GENERAL", "UseActiveDirectory", "False")
      .Set("GENERAL", "UseManualDefinitions", "False")
      .Set("GENERAL", "AlwaysRun", "False")
      .Set("GENERAL", "ShowProgress", "False")
      .Set("NOTIFICATION SMTP", "UseSMTP", "False")
      .Set("NOTIFICATION FILE OUTPUT", "UseFileOutput", "False")
      .Set("NOTIFICATION FILE OUTPUT", "IncludeComputerName", "False")
      .Set("NOTIFICATION FILE OUTPUT", "IncludeOutcome", "False")
      .Set("NOTIFICATION FILE OUTPUT", "WriteToEventLog", "False")
      .Set("NOTIFICATION CLIENT POP-UP", "UseClientPopup", "False")
      .Set("NOTIFICATION CLIENT POP-UP", "UseSuccessClientPopup", "False")
      .Set("NOTIFICATION CLIENT POP-UP", "UseFailureClientPopup", "False")
      .Set("DEPLOYMENT", "CreateWebLaunchPage", "False")
      .Set("DEPLOYMENT", "CreateBatchFile", "False")
      .Set("DEPLOYMENT", "IncludeMDAC", "False")
      .Set("PRUNE", "DeleteADOrphans", "False")
      .Set("PRUNE", "DeleteAllNonNetworked", "False")
      .Set("SUPPORT", "DebugOn", "True");
  return ini;
}

// A valid INI file that asks for the manual migration; tests set the keys
// they need. Self is the test's own file type, so that Set chains with its
// further setters.
template <class Self>
class ManualIni : public IniFile {
 public:
  ManualIni() : IniFile(ValidIni()) { IniFile::Set("GENERAL", "UseManualDefinitions", "True"); }
  Self& Set(const std::string& section, const std::string& key, const std::string& value) {
    IniFile::Set(section, key, value);
    return static_cast<Self&>(*this);
  }
};

// The echo of ValidIni(): no lists, so one empty record under each heading.
inline constexpr const char* kEchoOfValidIni =
    ">> UseActiveDirectory: False\r\n"
    ">> UseManualDefinitions: False\r\n"
    ">> AlwaysRun: False\r\n"
    ">> ShowProgress: False\r\n"
    ">> DomainName: \r\n"
    ">> Server to Server Pairs <<\r\n"
    ">> From Server: \r\n"
    ">> To Server: \r\n"
    ">> Printer to Printer Pairs <<\r\n"
    ">> From Printer: \r\n"
    ">> To Printer: \r\n"
    ">> Mixed to Mixed Pairs <<\r\n"
    ">> From Server: \r\n"
    ">> From Printer: \r\n"
    ">> To Server: \r\n"
    ">> To Printer: \r\n"
    ">> UseSMTP: False\r\n"
    ">> SMTPServerNameOrIP: \r\n"
    ">> ServerPort: \r\n"
    ">> EmailSubject: \r\n"
    ">> Email To Addresses <<\r\n"
    ">> To Email Address: \r\n"
    ">> EmailFrom: \r\n"
    ">> UseFileOutput: False\r\n"
    ">> FileOutputPath: \r\n"
    ">> FileOutputName: \r\n"
    ">> IncludeComputerName: False\r\n"
    ">> IncludeOutcome: False\r\n"
    ">> WriteToEventLog: False\r\n"
    ">> UseClientPopup: False\r\n"
    ">> UseSuccessClientPopup: False\r\n"
    ">> SuccessMessage: \r\n"
    ">> UseFailureClientPopup: False\r\n"
    ">> FailureMessage: \r\n"
    ">> DeploymentPath: \r\n"
    ">> CreateHTMLLaunchPage: False\r\n"
    ">> CreateBatchFile: False\r\n"
    ">> IncludeMDAC: False\r\n"
    ">> MDACOption: 0\r\n"
    ">> Populate <<\r\n"
    ">> Server Name: \r\n"
    ">> Printer Name: \r\n"
    ">> Prune <<\r\n"
    ">> Server Name: \r\n"
    ">> Printer Name: \r\n"
    ">> Delete AD Orphans: False\r\n"
    ">> Delete All Non-Networked: False\r\n"
    ">> Printer Driver <<\r\n"
    ">> Printer Name: \r\n"
    ">> Driver Name: \r\n"
    ">> Driver File Name: \r\n"
    ">> Port Name: \r\n"
    ">> Driver Share Path: \r\n"
    ">> DebugOn: True\r\n";

}  // namespace testini

using testini::IniFile;
using testini::kEchoOfValidIni;
using testini::ValidIni;
