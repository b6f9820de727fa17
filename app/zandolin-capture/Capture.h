// zandolin-capture: the computer it runs on, written as a simulated client.
//
// Everything is read through the platform boundary (platform::Services()),
// with the calls the engine itself makes, so that zandolin-sim runs on the
// capture as the engine runs on the computer. On Windows the boundary is the
// real system; on the simulated platform a simulated client is captured.
#pragma once

#include "platform/sim/SimMachine.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace capture {

// A file of the client that the engine would read.
struct ClientFile {
  std::string windowsPath;   // in the client's ANSI code page
  std::string content;       // the bytes as they are on the client
};

struct Capture {
  sim::Machine machine;      // its strings in UTF-8, as machine.json holds them
  std::vector<ClientFile> files;
  // Folders of the client that the engine writes into, as they exist there
  // (in the client's ANSI code page).
  std::vector<std::string> folders;
  // "<COMPUTER>_<USER>" in the client's ANSI code page, with characters that
  // no folder name may hold replaced by "_".
  std::string folderName;
  // Set when the INI file named could not be read; the capture holds the
  // client without what the INI file would have added.
  std::optional<std::string> iniFailure;
};

struct Options {
  std::optional<std::string> iniFile;   // --ini FILE, as given (ANSI)
};

// Reads the client: the system, the user, the printers as the engine lists
// them, drivers, ports, the default printer and profile entries of the
// client's generation, the run status, the event source, the Point and
// Print policy; with an INI file also that file, its driver files, the
// folder of its output file, the print servers the run will talk to and the
// directory it will query.
Capture CaptureClient(const Options& options);

// The output folder a capture is written into. Paths are relative to it,
// names separated by "\\", in the system's ANSI code page; "" is the folder
// itself. A failure comes back as its reason, in the system's words.
class Output {
 public:
  virtual ~Output() = default;
  // Makes the folder and those above it that are missing.
  virtual std::optional<std::string> MakeFolder(const std::string& path) = 0;
  // Writes a new file, or replaces one.
  virtual std::optional<std::string> WriteFile(const std::string& path, const std::string& content) = 0;
  virtual bool Exists(const std::string& path) = 0;
  virtual std::optional<std::string> Rename(const std::string& from, const std::string& to) = 0;
  // Removes a file, or a folder with all it holds; what is missing is no
  // failure.
  virtual void Remove(const std::string& path) = 0;
};

// A capture that cannot be written, and why.
struct WriteError {
  std::string reason;
};

// Writes <COMPUTER>_<USER>\ (machine.json and files\) into the output
// folder: made beside it, then put in place of an earlier capture, so that a
// failure leaves the earlier capture or nothing. Throws WriteError.
void WriteCapture(Output& output, const Capture& capture);

// The program: zandolin-capture [OUTPUT_FOLDER] [--ini FILE]. The output
// folder defaults to the folder of the executable; makeOutput gives the
// output of a folder. What it says goes to out and err. Exit status 0 when
// the capture was written whole; 1 when it could not be written, or was
// written without what an unreadable INI file would have added; 2 for a
// usage error.
using OutputMaker = std::function<std::unique_ptr<Output>(const std::string& folder)>;
int Main(const std::vector<std::string>& arguments, const OutputMaker& makeOutput, std::string& out,
         std::string& err);

}  // namespace capture
