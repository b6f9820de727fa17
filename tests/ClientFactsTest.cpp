// What a client's run did, from its report: moves, losses, the default.
#include "app/zandolin-fleet/ClientFacts.h"

#include <gtest/gtest.h>

namespace {

using fleet::ClientFacts;
using fleet::OutcomeRun;

const OutcomeRun kRun = fleet::ReadOutcome(
    "\r\n* ----- Computer: PC1 Username: ann Printers ----- *"
    "\r\n\\\\OLD\\laser (\\\\OLD)\r\n\\\\OLD\\color (\\\\OLD)\r\n\\\\OLD\\fax (\\\\OLD)\r\nLocal Printer: PDF"
    "\r\nDefault Printer:\\\\OLD\\color"
    "\r\n\r\n* ----- Migrating Networked Printers Between Servers ----- *"
    "\r\nMigrating: \\\\OLD\\laser to \\\\NEW\\laser\r\nPopulated networked printer: \\\\NEW\\laser"
    "\r\nDeleted networked printer: \\\\OLD\\laser"
    "\r\nMigrating: \\\\OLD\\color to \\\\NEW\\color\r\nError (1801) populating network printer: \\\\NEW\\color"
    "\r\nDeleted networked printer: \\\\OLD\\color"
    "\r\nError (1801) setting default printer: \\\\NEW\\color"
    "\r\nPrinter already migrated: \\\\OTHER\\x (\\\\OTHER)");

TEST(ClientFactsTest, ReplayedReport_GivesThePrintersAndDefaultAfter) {
  ClientFacts f;
  fleet::ReplayRuns(f, {&kRun});
  EXPECT_EQ(f.printersBefore, (std::vector<std::string>{"\\\\OLD\\laser", "\\\\OLD\\color", "\\\\OLD\\fax", "PDF"}));
  EXPECT_EQ(f.printersAfter, (std::vector<std::string>{"\\\\OLD\\fax", "PDF", "\\\\NEW\\laser"}));
  EXPECT_EQ(f.defaultBefore, "\\\\OLD\\color");
  EXPECT_EQ(f.defaultAfter, "");
}

TEST(ClientFactsTest, Changes_MovedLostUntouchedAndTheDefault) {
  ClientFacts f;
  fleet::ReplayRuns(f, {&kRun});
  fleet::DeriveChanges(f, {&kRun});
  ASSERT_EQ(f.moved.size(), 1u);
  EXPECT_EQ(f.moved[0].from, "\\\\OLD\\laser");
  EXPECT_EQ(f.moved[0].to, "\\\\NEW\\laser");
  ASSERT_EQ(f.failedAdds.size(), 1u);
  EXPECT_EQ(f.failedAdds[0].printer, "\\\\NEW\\color");
  EXPECT_EQ(f.failedAdds[0].error, 1801);
  EXPECT_EQ(f.lost, std::vector<std::string>{"\\\\OLD\\color"});
  EXPECT_EQ(f.untouched, (std::vector<std::string>{"\\\\OLD\\fax", "PDF"}));
  EXPECT_TRUE(f.defaultLost);
  EXPECT_EQ(fleet::StatusByReport(kRun), "False");
  EXPECT_TRUE(f.AtRisk());
}

TEST(ClientFactsTest, CsvRow_QuotesWhatMustBeQuoted) {
  ClientFacts f;
  f.computer = "PC1";
  f.user = "a \"quoted\", user";
  f.failedAdds.push_back({"\\\\NEW\\x", 3019});
  f.messageBoxes.push_back("[Zandolin] line one\r\nline two");
  std::string row = fleet::CsvRow(f);
  EXPECT_EQ(row.substr(0, 27), "PC1,\"a \"\"quoted\"\", user\",,,");
  EXPECT_NE(row.find(",1,\\\\NEW\\x (3019: a driver download is needed: Point and Print lets only administrators "
                     "install the queue's driver),"),
            std::string::npos);
  EXPECT_NE(row.find(",\"[Zandolin] line one\r\nline two\","), std::string::npos);
  EXPECT_EQ(row.substr(row.size() - 2), "\r\n");
}

TEST(ClientFactsTest, Json_CarriesEveryFactAndBack) {
  ClientFacts f;
  fleet::ReplayRuns(f, {&kRun});
  fleet::DeriveChanges(f, {&kRun});
  f.statusRecorded = "False";
  f.mailTo = "admin@example.com";
  ClientFacts back = fleet::FactsFromJson(fleet::ToJson(f));
  EXPECT_EQ(fleet::CsvRow(back), fleet::CsvRow(f));
}

}  // namespace
