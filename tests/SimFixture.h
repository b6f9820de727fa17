// Tests on a simulated client made in a fresh temporary folder.
#pragma once

#include "platform/sim/Simulator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <string>

class SimFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A file on the client's drives, by its Windows path ("C:\\Deploy\\a.ini").
  void WriteFile(const std::string& windowsPath, const std::string& content);
  std::string ReadFile(const std::string& windowsPath) const;
  bool FileExists(const std::string& windowsPath) const;
  // Writes machine, loads the client and makes it the active platform with
  // the engine's process state reset; for calling single procedures.
  void Install();
  // Writes machine, loads the client and runs the engine once; the
  // transcript.
  nlohmann::json Run(const std::string& commandLine = "", double limitSeconds = 120);
  // The transcript of the installed client so far.
  nlohmann::json Transcript();

  nlohmann::json machine = nlohmann::json::object();   // machine.json
  std::filesystem::path dir;                            // the client folder
  std::unique_ptr<sim::Client> client;
};
