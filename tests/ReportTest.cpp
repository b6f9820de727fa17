// The readable report's words: message box styles and the SMTP dialogue in
// short. The whole report is tested through zandolin-sim
// (zandolinSimTest.cpp).
#include "app/zandolin-sim/Report.h"

#include <gtest/gtest.h>

namespace {

TEST(ReportTest, StyleWords_ButtonsIconDefaultAndModality) {
  EXPECT_EQ(report::StyleWords(0), "an OK button");
  EXPECT_EQ(report::StyleWords(16), "an OK button, a critical (stop) icon");
  EXPECT_EQ(report::StyleWords(0x24), "Yes and No buttons, a question-mark icon");
  EXPECT_EQ(report::StyleWords(0x1131),
            "OK and Cancel buttons, a warning (exclamation) icon, the second button as default, system-modal");
  EXPECT_EQ(report::StyleWords(0x42040), "an OK button, an information icon, task-modal, topmost");
  EXPECT_EQ(report::StyleWords(0x7), "buttons 7");
  EXPECT_EQ(report::StyleWords(0x1000000), "an OK button, other flags 16777216");
}

TEST(ReportTest, Dialogue_CommandsAndAnswersInTurn_TheMessageInShort) {
  const std::string sent =
      "HELO PC042\r\nMAIL FROM:<a@b>\r\nRCPT TO:<c@d>\r\nDATA\r\nSubject: x\r\n\r\nline\r\n.\r\nQUIT";
  const std::string received = "220 mail ready\r\n250 mail\r\n250 OK\r\n250 OK\r\n354 go\r\n250 queued\r\n";
  EXPECT_EQ(report::Dialogue(sent, received, "  "),
            "  < 220 mail ready\n"
            "  > HELO PC042\n"
            "  < 250 mail\n"
            "  > MAIL FROM:<a@b>\n"
            "  < 250 OK\n"
            "  > RCPT TO:<c@d>\n"
            "  < 250 OK\n"
            "  > DATA\n"
            "  < 354 go\n"
            "  > (the message: 3 lines, 20 bytes)\n"
            "  < 250 queued\n"
            "  > QUIT (no line end)\n");
}

TEST(ReportTest, Dialogue_MultiLineAnswerIncompleteAnswerAndRefusedData) {
  EXPECT_EQ(report::Dialogue("EHLO x\r\n", "220 a\r\n250-first\r\n250 last\r\n", ""),
            "< 220 a\n> EHLO x\n< 250 first\n");
  EXPECT_EQ(report::Dialogue("", "220 half", ""), "< 220 half (no line end)\n");
  // DATA refused: what follows is no message.
  EXPECT_EQ(report::Dialogue("DATA\r\nQUIT\r\n", "220 a\r\n550 no\r\n221 bye\r\n", ""),
            "< 220 a\n> DATA\n< 550 no\n> QUIT\n< 221 bye\n");
  EXPECT_EQ(report::Dialogue("DATA\r\nSubject: x\r\n", "220 a\r\n354 go\r\n", ""),
            "< 220 a\n> DATA\n< 354 go\n> (the message: 1 line, 12 bytes, not ended)\n");
}

}  // namespace
