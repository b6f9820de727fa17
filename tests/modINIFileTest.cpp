// Finding the INI file: the command line as given, or the first *.ini beside
// the executable.
#include "engine/modINIFile.h"

#include "IniFileBuilder.h"
#include "SimFixture.h"

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

std::string Line(const std::string& text) { return text + "\r\n"; }

std::string CommandLineBanner() {
  const std::string rule(80, '*');
  return Line(rule) +
         Line(std::string(24, '*') + "     COMMAND LINE PARAMETERS    " + std::string(23, '*')) +
         Line(rule);
}

class modINIFileTest : public SimFixture {
 protected:
  static bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }
};

TEST_F(modINIFileTest, CommandLine_WithAndWithoutQuotes_GivesTheSamePath) {
  WriteFile("C:\\Deploy\\new printers.ini", ValidIni().Text());
  const json quoted = Run("\"C:\\Deploy\\new printers.ini\"");
  EXPECT_TRUE(Contains(quoted["debugBuffer"],
                       CommandLineBanner() +
                           Line(">> Command line parameter: \"C:\\Deploy\\new printers.ini\"") +
                           Line(">> Opening INI File: C:\\Deploy\\new printers.ini") +
                           Line(">> UseActiveDirectory: False")));
  EXPECT_TRUE(quoted["messageBoxes"].empty());

  const json plain = Run("C:\\Deploy\\new printers.ini");
  EXPECT_TRUE(Contains(plain["debugBuffer"],
                       Line(">> Command line parameter: C:\\Deploy\\new printers.ini") +
                           Line(">> Opening INI File: C:\\Deploy\\new printers.ini")));
  // One key for both spellings: the second run finds the first one's success.
  EXPECT_TRUE(Contains(plain["outcomeText"], "This INI file has already succeeded"));
  EXPECT_EQ("C:\\Deploy\\new printers.ini,True\r\n",
            ReadFile("C:\\Users\\jdoe\\Zandolin_status.log"));
}

TEST_F(modINIFileTest, CommandLine_QuoteInTheMiddle_IsRemovedToo) {
  WriteFile("C:\\Deploy\\a.ini", ValidIni().Text());
  const json t = Run("C:\\De\"ploy\\a.ini");
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> Command line parameter: C:\\De\"ploy\\a.ini") +
                                             Line(">> Opening INI File: C:\\Deploy\\a.ini")));
  EXPECT_EQ("C:\\Deploy\\a.ini,True\r\n", ReadFile("C:\\Users\\jdoe\\Zandolin_status.log"));
}

TEST_F(modINIFileTest, CommandLine_BareFileName_StaysAsTypedAndIsReadFromTheWindowsFolder) {
  WriteFile("C:\\Windows\\bare.ini", ValidIni().Text());
  const json t = Run("bare.ini");
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> Opening INI File: bare.ini")));
  EXPECT_TRUE(t["messageBoxes"].empty());
  EXPECT_EQ("bare.ini,True\r\n", ReadFile("C:\\Users\\jdoe\\Zandolin_status.log"));
}

TEST_F(modINIFileTest, CommandLine_BlanksAroundThePath_StayInIt) {
  WriteFile("C:\\Deploy\\a.ini", ValidIni().Text());
  const json t = Run("  C:\\Deploy\\a.ini ");
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> Command line parameter:   C:\\Deploy\\a.ini ") +
                                             Line(">> Opening INI File:   C:\\Deploy\\a.ini ")));
}

TEST_F(modINIFileTest, CommandLine_TextAfterThePath_IsPartOfThePath) {
  WriteFile("C:\\Deploy\\a.ini", ValidIni().Text());
  const json t = Run("C:\\Deploy\\a.ini /force");
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> Opening INI File: C:\\Deploy\\a.ini /force")));
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":16,
      "text":"Unable to get INI file contents, please check your file path and permissions."}])"),
            t["messageBoxes"]);
}

TEST_F(modINIFileTest, CommandLine_OnlyQuotes_LoadsAnEmptyPathWithoutSearching) {
  WriteFile("C:\\Deploy\\a.ini", ValidIni().Text());
  const json t = Run("\"\"");
  const std::string log = t["debugBuffer"];
  // Nothing can be read, so DebugOn goes False and the log stops here.
  EXPECT_TRUE(log.ends_with(CommandLineBanner() + Line(">> Command line parameter: \"\"") +
                            Line(">> Opening INI File: ")));
  EXPECT_FALSE(Contains(log, "First found"));
  EXPECT_EQ(json::parse(R"([{"title":"Zandolin","style":16,
      "text":"Unable to get INI file contents, please check your file path and permissions."}])"),
            t["messageBoxes"]);
}

TEST_F(modINIFileTest, NoCommandLine_TakesTheINIFileBesideTheExecutable) {
  WriteFile("C:\\Deploy\\readme.txt", "not an INI file");
  WriteFile("C:\\Deploy\\Printers.INI", ValidIni().Text());
  const json t = Run();
  EXPECT_TRUE(
      Contains(t["debugBuffer"], CommandLineBanner() + Line(">> Command line parameter: ") +
                                     Line(">> First found INI file : Printers.INI") +
                                     Line(">> Opening INI File: C:\\Deploy\\Printers.INI")));
  EXPECT_TRUE(t["messageBoxes"].empty());
}

TEST_F(modINIFileTest, NoCommandLine_NoINIFile_ShowsTheErrorBox) {
  WriteFile("C:\\Deploy\\readme.txt", "not an INI file");
  WriteFile("C:\\Other\\elsewhere.ini", ValidIni().Text());
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> First found INI file : ") +
                                             Line("ERROR: Unable to find an INI File.")));
  EXPECT_EQ(json::parse(R"([{"title":"Error","style":16,
      "text":"Unable to find INI file. Please check your deployment and try again."}])"),
            t["messageBoxes"]);
  EXPECT_FALSE(FileExists("C:\\Users\\jdoe\\Zandolin_status.log"));
}

TEST_F(modINIFileTest, NoCommandLine_ExecutableInADriveRoot_KeepsTheDoubledBackslash) {
  machine["exePath"] = "C:\\ZandolinEngine.exe";
  WriteFile("C:\\root.ini", ValidIni().Text());
  const json t = Run();
  EXPECT_TRUE(Contains(t["debugBuffer"], Line(">> First found INI file : root.ini") +
                                             Line(">> Opening INI File: C:\\\\root.ini")));
}

}  // namespace
