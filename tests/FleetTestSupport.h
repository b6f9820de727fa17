// Test helper: running zandolin-fleet and reading its CSV.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace fleettest {

namespace fs = std::filesystem;

// A fresh empty folder under the temporary directory, of this process: the
// tests of a suite run as processes of their own, at the same time.
inline fs::path FreshFolder(const std::string& name) {
  fs::path dir = fs::temp_directory_path() / (name + "-" + std::to_string(::getpid()) + "-" + std::to_string(std::rand()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

inline std::string ReadAll(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

// Runs a command line; its exit status, standard output and error in files.
inline int Run(const std::string& command, const fs::path& outputs) {
  std::string line = command + " >" + (outputs / "stdout.txt").string() + " 2>" + (outputs / "stderr.txt").string();
  int status = std::system(line.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::string Quote(const fs::path& path) { return "'" + path.string() + "'"; }

// The rows of a CSV file as maps from the header's names.
inline std::vector<std::map<std::string, std::string>> ReadCsv(const fs::path& file) {
  std::string text = ReadAll(file);
  std::vector<std::vector<std::string>> rows(1);
  std::string field;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (quoted) {
      if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') field += '"', ++i;
      else if (c == '"') quoted = false;
      else field += c;
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      rows.back().push_back(field), field.clear();
    } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      rows.back().push_back(field), field.clear();
      rows.emplace_back();
      ++i;
    } else {
      field += c;
    }
  }
  if (rows.back().empty()) rows.pop_back();
  std::vector<std::map<std::string, std::string>> result;
  for (size_t r = 1; r < rows.size(); ++r) {
    std::map<std::string, std::string> row;
    for (size_t k = 0; k < rows[0].size() && k < rows[r].size(); ++k) row[rows[0][k]] = rows[r][k];
    result.push_back(row);
  }
  return result;
}

// Every file below a folder with its content, to see that nothing changed.
inline std::map<std::string, std::string> Snapshot(const fs::path& root) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    files[fs::relative(entry.path(), root).string() + (entry.is_directory() ? "/" : "")] =
        entry.is_regular_file() ? ReadAll(entry.path()) : "";
  return files;
}

}  // namespace fleettest
