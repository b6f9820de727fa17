// Reading the engine's outcome text and output files back.
#include "app/zandolin-fleet/OutcomeText.h"

#include <gtest/gtest.h>

namespace {

using fleet::OutcomeStep;

const std::string kRun =
    "\r\n* ----- Computer: PC042 Username: jdoe Printers ----- *"
    "\r\n\\\\OLD\\laser (\\\\OLD)"
    "\r\nLocal Printer: PDF"
    "\r\nDefault Printer:\\\\OLD\\laser"
    "\r\n\r\n* ----- AD Printers ----- *"
    "\r\nlaser (\\\\NEW\\laser)"
    "\r\ncolor (\\\\NEW\\color)"
    "\r\n\r\n* ----- Migrating Printers using AD ----- *"
    "\r\nMigrating: \\\\OLD\\laser to \\\\NEW\\laser"
    "\r\nPopulated networked printer: \\\\NEW\\laser"
    "\r\nDeleted networked printer: \\\\OLD\\laser"
    "\r\nSet default printer: \\\\NEW\\laser"
    "\r\nError (1801) populating network printer: \\\\NEW\\plotter"
    "\r\nPrinter NOT FOUND IN AD: \\\\OLD\\fax (\\\\OLD)";

TEST(OutcomeTextTest, FullRun_EveryLineUnderstood) {
  fleet::OutcomeRun run = fleet::ReadOutcome(kRun);
  EXPECT_TRUE(run.inventory);
  EXPECT_EQ(run.computer, "PC042");
  EXPECT_EQ(run.user, "jdoe");
  EXPECT_EQ(run.printers, (std::vector<std::string>{"\\\\OLD\\laser", "PDF"}));
  EXPECT_EQ(run.local, (std::vector<bool>{false, true}));
  EXPECT_EQ(run.defaultPrinter, "\\\\OLD\\laser");
  EXPECT_EQ(run.directoryQueues, 2u);
  ASSERT_EQ(run.steps.size(), 6u);
  EXPECT_EQ(run.steps[0].kind, OutcomeStep::kMove);
  EXPECT_EQ(run.steps[0].printer, "\\\\OLD\\laser");
  EXPECT_EQ(run.steps[0].to, "\\\\NEW\\laser");
  EXPECT_EQ(run.steps[3].kind, OutcomeStep::kDefaultSet);
  EXPECT_EQ(run.steps[4].kind, OutcomeStep::kAddFailed);
  EXPECT_EQ(run.steps[4].error, 1801);
  EXPECT_EQ(run.steps[5].kind, OutcomeStep::kNotInDirectory);
  EXPECT_EQ(run.steps[5].printer, "\\\\OLD\\fax");
  EXPECT_TRUE(run.operationFailed);
  EXPECT_TRUE(run.unknown.empty());
}

TEST(OutcomeTextTest, AlreadySucceeded_ThreeLinesAndNoPrinters) {
  fleet::OutcomeRun run = fleet::ReadOutcome(
      "\r\nThis INI file has already succeeded on this machine.\r\nIf you would like to run this INI file again, "
      "please save it as a different name or \r\nplease select the Always Run feature on the General step.");
  EXPECT_TRUE(run.alreadySucceeded);
  EXPECT_FALSE(run.inventory);
  EXPECT_TRUE(run.unknown.empty());
}

TEST(OutcomeTextTest, DirectoryError_AbortsTheRun) {
  fleet::OutcomeRun run = fleet::ReadOutcome(
      "\r\n* ----- Computer: PC Username: u Printers ----- *\r\nError accessing Active Directory. Try installing an "
      "MDAC update.\r\n> Error Number: -2147016646\r\n> Error Description: The server is not operational.");
  EXPECT_TRUE(run.directoryFailed);
  EXPECT_EQ(run.directoryError,
            "Error accessing Active Directory. Try installing an MDAC update.; > Error Number: -2147016646; > Error "
            "Description: The server is not operational.");
  EXPECT_TRUE(run.unknown.empty());
}

TEST(OutcomeTextTest, UnknownLine_IsKept) {
  fleet::OutcomeRun run = fleet::ReadOutcome(kRun + "\r\nSomething new");
  EXPECT_EQ(run.unknown, std::vector<std::string>{"Something new"});
}

TEST(OutcomeTextTest, OutputFile_SplitIntoItsRunsAndTheCutOneMarked) {
  const std::string file = "\r\n\r\nReport At: 11/21/2026 9:00:00 AM\r\n\r\n" + kRun + "\r\n" +
                           "\r\n\r\nReport At: 11/22/2026 9:00:00 AM\r\n\r\n" + kRun.substr(0, 75);
  auto runs = fleet::ReadOutputFile(file);
  ASSERT_TRUE(runs.has_value());
  ASSERT_EQ(runs->size(), 2u);
  EXPECT_EQ((*runs)[0].reportAt, "11/21/2026 9:00:00 AM");
  EXPECT_FALSE((*runs)[0].cut);
  EXPECT_EQ((*runs)[1].reportAt, "11/22/2026 9:00:00 AM");
  EXPECT_TRUE((*runs)[1].cut);
  EXPECT_NE((*runs)[0].text.find("[2 print queues of the directory, listed in the output file, not repeated here]"),
            std::string::npos);
}

TEST(OutcomeTextTest, FileThatIsNoOutputFile_IsRefused) {
  EXPECT_FALSE(fleet::ReadOutputFile("Deployment notes\r\nReport At: 1/1/2026\r\n").has_value());
  EXPECT_FALSE(fleet::ReadOutputFile("").has_value());
}

TEST(OutcomeTextTest, DirectoryListing_CollapsedInTheReportAndTheDebugLog) {
  const std::string collapsed = fleet::CollapseDirectoryListing(kRun, "d.txt");
  EXPECT_NE(collapsed.find("\r\n* ----- AD Printers ----- *\r\n[2 print queues of the directory, listed in d.txt]\r\n"
                           "\r\n* ----- Migrating Printers using AD ----- *\r\n"),
            std::string::npos)
      << collapsed;
  EXPECT_EQ(collapsed.find("color (\\\\NEW"), std::string::npos);
  EXPECT_EQ(fleet::CollapseDirectoryListing(">> a\r\n>> AD Printer: x (\\\\S\\x)\r\n>> b\r\n", "d.txt"),
            ">> a\r\n[1 print queue of the directory, listed in d.txt]\r\n>> b\r\n");
}

TEST(OutcomeTextTest, Windows1252Text_BecomesUtf8) {
  EXPECT_EQ(fleet::AsUtf8("M\xfcller \x80"), "M\xc3\xbcller \xe2\x82\xac");
  EXPECT_EQ(fleet::AsUtf8("M\xc3\xbcller"), "M\xc3\xbcller");
}

}  // namespace
