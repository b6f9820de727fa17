// profile-probe: asks GetPrivateProfileStringA the queries of a list about
// INI files and prints each answer (return value, last error, the buffer's
// bytes), so that two readers of INI files can be compared line by line.
// Built for Windows, it asks the system's own function (Wine's under the
// tests); built for Linux, the simulated client's.
//
//   profile-probe.exe QUERIES FOLDER                    (Windows paths)
//   profile-probe [--code-page N] QUERIES FOLDER        (Linux paths)
//
// QUERIES has one query a line, "FILE|SECTION|KEY|SIZE": FILE a name in
// FOLDER or "*" for every file named by a "file" line ("file|NAME"), "-"
// for a null section or key, "\xNN" for any byte, "#" starting a comment.
// Each answer is one line: the query, " => ", the return value, the last
// error and the buffer up to two bytes past the returned count, each byte
// that is not printable ASCII as "\xNN". The buffer is filled with 0xCC
// before each call.
#ifdef _WIN32
#include <windows.h>
#else
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Answer {
  unsigned long count = 0, lastError = 0;
};

#ifdef _WIN32
std::string gFolder;

Answer Ask(const char* section, const char* key, char* buffer, unsigned long size, const std::string& file) {
  std::string path = gFolder + "\\" + file;
  SetLastError(0);
  Answer a;
  a.count = GetPrivateProfileStringA(section, key, nullptr, buffer, size, path.c_str());
  a.lastError = GetLastError();
  return a;
}
#else
sim::Context gContext;

Answer Ask(const char* section, const char* key, char* buffer, unsigned long size, const std::string& file) {
  std::string path = "C:\\corpus\\" + file;
  Answer a;
  a.count = sim::ProfileService().GetPrivateProfileStringA(section, key, nullptr, buffer, size, path.c_str());
  a.lastError = gContext.lastError;
  return a;
}
#endif

// "\xNN" escapes to bytes.
std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x') {
      out += static_cast<char>(std::strtol(text.substr(i + 2, 2).c_str(), nullptr, 16));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string Escape(const char* bytes, size_t size) {
  std::string out;
  for (size_t i = 0; i < size; ++i) {
    unsigned char b = static_cast<unsigned char>(bytes[i]);
    if (b >= 0x20 && b < 0x7F && b != '\\' && b != '|') {
      out += static_cast<char>(b);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", b);
      out += hex;
    }
  }
  return out;
}

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> parts;
  std::string part;
  for (char c : line) {
    if (c == '|') {
      parts.push_back(part);
      part.clear();
    } else {
      part += c;
    }
  }
  parts.push_back(part);
  return parts;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  unsigned long codePage = 1252;
  if (args.size() >= 2 && args[0] == "--code-page") {
    codePage = std::strtoul(args[1].c_str(), nullptr, 10);
    args.erase(args.begin(), args.begin() + 2);
  }
  if (args.size() != 2) {
    std::cerr << "usage: profile-probe [--code-page N] QUERIES FOLDER\n";
    return 2;
  }
  std::ifstream queries(args[0], std::ios::binary);
  if (!queries) {
    std::cerr << "profile-probe: cannot read " << args[0] << "\n";
    return 2;
  }
#ifdef _WIN32
  (void)codePage;
  gFolder = args[1];
#else
  // A simulated client whose drive C: holds the files as C:\corpus.
  namespace fs = std::filesystem;
  std::string pattern = (fs::temp_directory_path() / "profile-probe-XXXXXX").string();
  if (!mkdtemp(pattern.data())) return 2;
  gContext.folder = pattern;
  gContext.machine.ansiCodePage = static_cast<uint32_t>(codePage);
  fs::create_directories(gContext.folder / "files" / "C");
  fs::copy(args[1], gContext.folder / "files" / "C" / "corpus", fs::copy_options::recursive);
  sim::SetCurrent(&gContext);
#endif

  std::vector<std::string> files;
  std::vector<std::vector<std::string>> asked;
  std::string line;
  while (std::getline(queries, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> q = Split(line);
    if (q.size() == 2 && q[0] == "file") files.push_back(q[1]);
    else if (q.size() == 4) asked.push_back(q);
    else std::cerr << "profile-probe: not a query: " << line << "\n";
  }

  std::vector<char> buffer;
  for (const std::string& file : files) {
    for (const std::vector<std::string>& q : asked) {
      if (q[0] != "*" && q[0] != file) continue;
      std::string section = Unescape(q[1]), key = Unescape(q[2]);
      unsigned long size = std::strtoul(q[3].c_str(), nullptr, 10);
      buffer.assign(size + 2, '\xCC');
      Answer a = Ask(q[1] == "-" ? nullptr : section.c_str(), q[2] == "-" ? nullptr : key.c_str(), buffer.data(),
                     size, file);
      size_t shown = std::min<size_t>(size, a.count + 2);
      std::cout << file << "|" << q[1] << "|" << q[2] << "|" << q[3] << " => " << a.count << " " << a.lastError
                << " " << Escape(buffer.data(), shown) << "\n";
    }
  }
#ifndef _WIN32
  sim::SetCurrent(nullptr);
  std::error_code ec;
  fs::remove_all(gContext.folder, ec);
#endif
  return 0;
}
