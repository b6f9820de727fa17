// The readable report of zandolin-sim: a run's transcript in an
// administrator's words.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <ostream>
#include <string>

namespace report {

// Where the run happened and what to add about it.
struct Place {
  std::string folder;      // the client folder as given (or the copy's)
  std::string note;        // a line on the copy, or empty
  std::string debugFile;   // where the debug file is, in words
};

// The whole report: the client, how the run ended and what it recorded,
// message boxes, printers and the default before and after and what the
// user lost, the directory's answer, the outcome text, event log entries,
// the e-mail dialogue, files written, the debug file, and with a trace the
// handles left open.
void Print(std::ostream& out, const nlohmann::json& transcript, const Place& place);

// A message box's flag word in words: "an OK button, a critical (stop) icon".
std::string StyleWords(uint32_t style);

// An SMTP dialogue in short, one line a command or answer, each behind
// indent: "< 220 ...", "> HELO PC042", "> (the message: 12 lines, 845 bytes)".
std::string Dialogue(const std::string& sent, const std::string& received, const std::string& indent);

}  // namespace report
