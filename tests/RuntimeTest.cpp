#include "engine/Runtime.h"

#include "ScenarioHelpers.h"

#include <gtest/gtest.h>

namespace {

using scenario::CatchFatal;

TEST(RuntimeTest, BoolText_GivesTrueAndFalseWords) {
  EXPECT_STREQ("True", BoolText(true));
  EXPECT_STREQ("False", BoolText(false));
}

TEST(RuntimeTest, TrimBlanks_RemovesOnlyBlanksFromBothEnds) {
  EXPECT_EQ("a b", TrimBlanks("   a b  "));
  EXPECT_EQ("\ta\t", TrimBlanks(" \ta\t "));
  EXPECT_EQ("", TrimBlanks("     "));
  EXPECT_EQ("", TrimBlanks(""));
  EXPECT_EQ(std::string("x\0", 2), TrimBlanks(std::string("x\0   ", 5)));
}

TEST(RuntimeTest, EqualsNoCase_ComparesWholeTextsCaseBlind) {
  EXPECT_TRUE(EqualsNoCase("\\\\OLD\\Laser", "\\\\old\\LASER"));
  EXPECT_FALSE(EqualsNoCase("laser", "laser2"));
  EXPECT_FALSE(EqualsNoCase("laser", "lasar"));
  EXPECT_TRUE(EqualsNoCase("", ""));
}

TEST(RuntimeTest, EqualsNoCase_FoldsOnlyAToZ) {
  EXPECT_TRUE(EqualsNoCase("DRUCKER-\xE9", "drucker-\xE9"));
  EXPECT_FALSE(EqualsNoCase("\xC9", "\xE9"));  // É and é of code page 1252
  EXPECT_FALSE(EqualsNoCase("@[`{", "`{@["));
}

TEST(RuntimeTest, SameName_OfFoldedNames_IsEqualsNoCaseForEveryPairOfBytes) {
  for (int a = 0; a < 256; ++a) {
    const std::string x(1, static_cast<char>(a));
    const FoldedName fx = FoldName(x);
    for (int b = 0; b < 256; ++b) {
      const std::string y(1, static_cast<char>(b));
      ASSERT_EQ(EqualsNoCase(x, y), SameName(fx, FoldName(y))) << a << " " << b;
    }
  }
}

TEST(RuntimeTest, SameName_OfFoldedNames_IsEqualsNoCaseForNamesOfAnyLength) {
  const std::vector<std::string> names = {
      "",          "q00001",         "Q00001",        "q00002",   "q0000",
      "laser",     "LASER",          "Laser ",        "lasers",   std::string("la\0er", 5),
      "\xC9tage", "\xE9tage",      "\xC9TAGE",     "\xC9tAgE", "Drucker-\xC4\xD6\xDC\x80\xFF",
      "DRUCKER-\xC4\xD6\xDC\x80\xFF", "drucker-\xE4\xF6\xFC\x80\xFF", "Z[\\]^_`a", "z[\\]^_`A"};
  FoldedNames list;
  for (const std::string& name : names) {
    FoldedName folded = FoldName(name);
    list.keys.push_back(folded.key);
    list.texts.push_back(folded.text);
  }
  for (size_t i = 0; i < names.size(); ++i) {
    for (size_t j = 0; j < names.size(); ++j) {
      const bool same = EqualsNoCase(names[i], names[j]);
      EXPECT_EQ(same, SameName(FoldName(names[i]), FoldName(names[j]))) << i << " " << j;
      EXPECT_EQ(same, SameName(list, static_cast<int>(i), FoldName(names[j]))) << i << " " << j;
      if (same) {
        EXPECT_EQ(FoldName(names[i]).key, FoldName(names[j]).key);
      }
    }
  }
}

TEST(RuntimeTest, FoldNames_FoldsTheFieldOfEachRecordInOrder) {
  struct Record {
    std::string Name;
    std::string Other;
  };
  const std::vector<Record> records = {{"", "x"}, {"NEW-Laser", "y"}, {"\xC9tage", "z"}};
  const FoldedNames names = FoldNames(records, &Record::Name);
  EXPECT_EQ((std::vector<std::string>{"", "new-laser", "\xC9tage"}), names.texts);
  ASSERT_EQ(3u, names.keys.size());
  EXPECT_EQ(FoldName("new-LASER").key, names.keys[1]);
  EXPECT_TRUE(SameName(names, 1, FoldName("NEW-LASER")));
  EXPECT_FALSE(SameName(names, 2, FoldName("\xE9tage")));
}

TEST(RuntimeTest, ContainsNoCase_FindsTheNeedleAnywhere) {
  EXPECT_TRUE(ContainsNoCase("Untrue", "True"));
  EXPECT_TRUE(ContainsNoCase("falsely", "FALSE"));
  EXPECT_TRUE(ContainsNoCase("TRUE", "true"));
  EXPECT_FALSE(ContainsNoCase("Tru e", "True"));
  EXPECT_FALSE(ContainsNoCase("Tr", "True"));
}

TEST(RuntimeTest, Split_KeepsEmptyPiecesAndGivesNoneForEmptyText) {
  EXPECT_TRUE(Split("", ",").empty());
  EXPECT_EQ((std::vector<std::string>{"a"}), Split("a", ","));
  EXPECT_EQ((std::vector<std::string>{"", ""}), Split(",", ","));
  EXPECT_EQ((std::vector<std::string>{"a", "", " b", ""}), Split("a,, b,", ","));
  EXPECT_EQ(3, UBound(Split("a,,b,", ",")));
}

TEST(RuntimeTest, ReplaceAll_ReplacesEveryOccurrenceExactly) {
  EXPECT_EQ("C:\\Deploy\\a.ini", ReplaceAll("C:\\De\"ploy\\a.ini", "\"", ""));
  EXPECT_EQ("", ReplaceAll("\"\"\"", "\"", ""));
  EXPECT_EQ("a\r\nb\r\nc^crlf", ReplaceAll("a^CRLFb^CRLFc^crlf", "^CRLF", "\r\n"));
}

TEST(RuntimeTest, CutAtNul_StopsAtTheFirstNul) {
  EXPECT_EQ("jdoe", CutAtNul(std::string("jdoe\0\0x", 7)));
  EXPECT_EQ("", CutAtNul(std::string("\0abc", 4)));
  EXPECT_EQ("abc", CutAtNul("abc"));
}

TEST(RuntimeTest, Val_TakesTheLeadingNumber) {
  EXPECT_EQ(12.0, Val("12abc"));
  EXPECT_EQ(0.0, Val("abc"));
  EXPECT_EQ(0.0, Val(""));
  EXPECT_EQ(2.5, Val("2.5"));
  EXPECT_EQ(-7.0, Val("-7"));
  EXPECT_EQ(7.0, Val("+7"));
  EXPECT_EQ(123.0, Val(" 1 2 3"));
  EXPECT_EQ(0.5, Val(".5"));
  EXPECT_EQ(1.2, Val("1.2.3"));
  EXPECT_EQ(1500.0, Val("1.5e3"));
  EXPECT_EQ(1500.0, Val("1.5E+3x"));
  EXPECT_EQ(0.015, Val("1.5e-2"));
  EXPECT_EQ(1.0, Val("1e"));
  EXPECT_EQ(0.0, Val("-"));
  EXPECT_EQ(0.0, Val("\t5"));  // only the blank is skipped
  EXPECT_EQ(40000.0, Val("40000"));
}

TEST(RuntimeTest, CInt_RoundsHalvesToEven) {
  EXPECT_EQ(2, CInt(2.5));
  EXPECT_EQ(4, CInt(3.5));
  EXPECT_EQ(-2, CInt(-2.5));
  EXPECT_EQ(3, CInt(2.6));
  EXPECT_EQ(32767, CInt(32767.0));
  EXPECT_EQ(-32768, CInt(-32768.0));
  EXPECT_EQ(-32768, CInt(-32768.5));
}

TEST(RuntimeTest, CInt_OutsideSixteenBits_IsFatalOverflow) {
  FatalError e = CatchFatal([] { CInt(40000.0); });
  EXPECT_EQ(6, e.Number);
  EXPECT_EQ("Overflow", e.Description);
  EXPECT_EQ(6, CatchFatal([] { CInt(32767.5); }).Number);
  EXPECT_EQ(6, CatchFatal([] { CInt(-32769.0); }).Number);
  EXPECT_EQ(6, CatchFatal([] { CInt(Val("1e400")); }).Number);
}

TEST(RuntimeTest, CBool_AcceptsWordsInAnyCaseAndNumbers) {
  EXPECT_TRUE(CBool("True"));
  EXPECT_TRUE(CBool("TRUE"));
  EXPECT_TRUE(CBool("true"));
  EXPECT_FALSE(CBool("False"));
  EXPECT_FALSE(CBool("fALSE"));
  EXPECT_TRUE(CBool("1"));
  EXPECT_TRUE(CBool("-1"));
  EXPECT_TRUE(CBool(" 2.5 "));
  EXPECT_FALSE(CBool("0"));
  EXPECT_FALSE(CBool("0.0"));
  EXPECT_TRUE(CBool("&H10"));
}

TEST(RuntimeTest, CBool_OtherText_IsFatalTypeMismatch) {
  for (const char* text : {"Yes", "", "1x", "Truee", " True"}) {
    FatalError e = CatchFatal([&] { CBool(text); });
    EXPECT_EQ(13, e.Number) << text;
    EXPECT_EQ("Type mismatch", e.Description) << text;
  }
}

TEST(RuntimeTest, RaiseFatal_CarriesNumberAndDescription) {
  FatalError e = CatchFatal([] { RaiseFatal(9); });
  EXPECT_EQ(9, e.Number);
  EXPECT_EQ("Subscript out of range", e.Description);
  e = CatchFatal([] { RaiseFatal(75, "Path/File access error"); });
  EXPECT_EQ(75, e.Number);
  EXPECT_EQ("Path/File access error", e.Description);
}

TEST(RuntimeTest, Forms_AreCountedOnceWhileLoaded) {
  ClearLoadedForms();
  int a = 0, b = 0;
  FormLoaded(&a);
  FormLoaded(&a);
  FormLoaded(&b);
  EXPECT_EQ(2, LoadedFormCount());
  EXPECT_TRUE(IsFormLoaded(&a));
  FormUnloaded(&a);
  EXPECT_FALSE(IsFormLoaded(&a));
  EXPECT_EQ(1, LoadedFormCount());
  ClearLoadedForms();
  EXPECT_EQ(0, LoadedFormCount());
}

TEST(RuntimeTest, ErrObject_TakeKeepsFailuresAndClearEmpties) {
  ErrObject err;
  err.Take({0, ""});
  EXPECT_EQ(0, err.Number);
  err.Take({53, "File not found"});
  err.Take({0, ""});
  EXPECT_EQ(53, err.Number);
  EXPECT_EQ("File not found", err.Description);
  err.Clear();
  EXPECT_EQ(0, err.Number);
  EXPECT_EQ("", err.Description);
}

TEST(RuntimeTest, Str_GivesDecimalText) {
  EXPECT_EQ("20002", Str(20002));
  EXPECT_EQ("-5", Str(-5));
}

}  // namespace
