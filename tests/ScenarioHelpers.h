// Test helpers shared by the tests that run the engine on a simulated client:
// expected debug log and outcome texts built from lines, printer and server
// records for machine.json, readings of the transcript, and a fixture with
// the usual ways of running, preparing and reading back the client.
#pragma once

#include "IniFileBuilder.h"
#include "SimFixture.h"
#include "config/modINIDocument.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace scenario {

using nlohmann::json;

// One debug line as the log holds it: ended by CR LF.
inline std::string Line(const std::string& text) { return text + "\r\n"; }

// Debug lines as the log holds them: each ended by CR LF.
inline std::string Log(std::initializer_list<std::string> lines) {
  std::string text;
  for (const auto& line : lines) text += Line(line);
  return text;
}

// Report lines as the outcome text holds them: each behind CR LF.
inline std::string Report(std::initializer_list<std::string> lines) {
  std::string text;
  for (const auto& line : lines) text += "\r\n" + line;
  return text;
}

// A banner of the debug log: a rule of 80 stars, the title padded with stars,
// and the rule again.
inline std::string Banner(int before, const std::string& title, int after) {
  const std::string rule(80, '*');
  return Line(rule) + Line(std::string(before, '*') + title + std::string(after, '*')) + Line(rule);
}

inline const std::string kHeader = "* ----- Computer: PC042 Username: jdoe Printers ----- *";
inline const std::string kNoDefault = "Warning no currently set default printer.";

// A network connection of the client, \\server\queue.
inline json Net(const std::string& server, const std::string& queue) {
  return {{"name", "\\\\" + server + "\\" + queue}, {"serverName", "\\\\" + server},
          {"shareName", queue}};
}

// A local printer of the client on LPT1:.
inline json Local(const std::string& name) {
  return {{"name", name}, {"serverName", nullptr}, {"portName", "LPT1:"}};
}

// Print servers by name, each with the queues it shares.
inline json Servers(
    std::initializer_list<std::pair<std::string, std::vector<std::string>>> servers) {
  json result = json::object();
  for (const auto& [name, queues] : servers) result[name] = {{"queues", queues}};
  return result;
}

// A list entry with the three fields the migration reads.
inline ClientPrinter Client(const std::string& server, const std::string& name,
                            const std::string& queue) {
  ClientPrinter printer;
  printer.ServerName = server;
  printer.PrinterName = name;
  printer.QueueName = queue;
  return printer;
}

// The names of printer records, in order.
inline std::vector<std::string> Names(const json& printers) {
  std::vector<std::string> names;
  for (const auto& printer : printers) names.push_back(printer.at("name").get<std::string>());
  return names;
}

// "Call arg" for each recorded spooler call.
inline std::vector<std::string> Calls(const json& transcript) {
  std::vector<std::string> calls;
  for (const auto& call : transcript["spoolerCalls"]) {
    std::string text = call["call"].get<std::string>();
    if (!call["args"].empty() && call["args"][0].is_string()) {
      text += " " + call["args"][0].get<std::string>();
    }
    calls.push_back(text);
  }
  return calls;
}

// The name of each recorded spooler call.
inline std::vector<std::string> CallNames(const json& transcript) {
  std::vector<std::string> calls;
  for (const auto& call : transcript["spoolerCalls"]) calls.push_back(call["call"]);
  return calls;
}

// How often piece stands in text, overlaps counted.
inline size_t Count(const std::string& text, const std::string& piece) {
  size_t n = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++n;
  return n;
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The FatalError that f raises; a failure of the test when it raises none.
template <class F>
FatalError CatchFatal(F&& f) {
  try {
    f();
  } catch (const FatalError& e) {
    return e;
  }
  ADD_FAILURE() << "no FatalError raised";
  return FatalError{0, ""};
}

// A simulated client with the usual ways of running and reading it back.
class ScenarioFixture : public SimFixture {
 protected:
  // Runs the engine once with ini as C:\Deploy\x.ini; the transcript.
  json RunWith(const testini::IniFile& ini) {
    WriteFile("C:\\Deploy\\x.ini", ini.Text());
    return Run();
  }

  // The run status file of the default user.
  std::string Status() { return ReadFile("C:\\Users\\jdoe\\Zandolin_status.log"); }

  // Installs the client for direct calls, with the log on.
  void Prepare() {
    Install();
    INIDocument.DebugOn = true;
    OperationsSucceeded = true;
  }

  // The client's state as the run or the calls left it; the next run starts
  // from it.
  json KeepMachine() {
    client->Save();
    std::ifstream in(dir / "machine.json");
    machine = json::parse(in);
    return machine;
  }

  // The values of a registry key of the client, as machine.json holds them.
  json RegistryKey(const std::string& path) {
    const json m = KeepMachine();
    if (!m.contains("registry")) return nullptr;
    for (const auto& [key, values] : m["registry"].items()) {
      if (EqualsNoCase(key, path)) return values;
    }
    return nullptr;
  }

  static void ExpectBlock(const std::string& text, const std::string& block) {
    EXPECT_NE(text.find(block), std::string::npos) << "missing:\n" << block << "\nin:\n" << text;
  }
};

}  // namespace scenario
