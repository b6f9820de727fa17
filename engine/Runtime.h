// The run-time services the engine's procedures lean on: the pending error of
// a stretch that runs with failures trapped, the fatal stop, the loaded forms,
// and the text rules of the system (only the blank is white space, case-blind
// compares, splitting that keeps empty pieces).
#pragma once

#include "platform/Platform.h"

#include <cstdint>
#include <string>
#include <vector>

// A failure nothing in the engine catches: an integer that does not fit 16
// bits, an index outside a list, a conversion that cannot be made. The entry
// point reports it and the process ends.
struct FatalError {
  int32_t Number;
  std::string Description;
};

inline constexpr int32_t kErrOverflow = 6;              // "Overflow"
inline constexpr int32_t kErrSubscriptOutOfRange = 9;   // "Subscript out of range"
inline constexpr int32_t kErrTypeMismatch = 13;         // "Type mismatch"
[[noreturn]] void RaiseFatal(int32_t number);
// The same with a description of its own (a file error's number and text).
[[noreturn]] void RaiseFatal(int32_t number, const std::string& description);

// The pending error of a stretch that runs with failures trapped.
struct ErrObject {
  int32_t Number = 0;
  std::string Description;
  void Clear() {
    Number = 0;
    Description.clear();
  }
  // Keeps a failure pending; a success leaves what is pending alone.
  void Take(const platform::Failure& failure) {
    if (failure.failed()) {
      Number = failure.Number;
      Description = failure.Description;
    }
  }
};
extern ErrObject Err;

// Forms (windows of the engine) that are loaded; the process lives on after
// Main while any is.
void FormLoaded(const void* form);
void FormUnloaded(const void* form);
bool IsFormLoaded(const void* form);
int LoadedFormCount();
// Forgets every loaded form (process start).
void ClearLoadedForms();

// Shorthand for the active platform services. Using them takes back the
// progress pulses the platform granted (platform::QuietPulses): after any
// other call the next pulse reaches the platform again.
inline platform::ServiceSet& Sys() {
  platform::ServiceSet& services = platform::Services();
  services.pulses.granted = 0;
  return services;
}

// "True" or "False".
const char* BoolText(bool value);
// Removes blanks (and only blanks) from both ends.
std::string TrimBlanks(const std::string& text);
// Whole-string compare, case-blind.
bool EqualsNoCase(const std::string& a, const std::string& b);
// A name prepared once for many case-blind whole-string compares, each of
// which gives what EqualsNoCase gives: the name folded as EqualsNoCase folds
// it, and a key of the folded text to reject on (names that compare equal
// have equal keys).
struct FoldedName {
  uint64_t key = 0;
  std::string text;
};
FoldedName FoldName(const std::string& name);
inline bool SameName(const FoldedName& a, const FoldedName& b) {
  return a.key == b.key && a.text == b.text;
}
// The names of a list folded once, keys apart from texts, so that a walk
// over the list reads little more than the keys.
struct FoldedNames {
  std::vector<uint64_t> keys;
  std::vector<std::string> texts;
};
template <class Record>
FoldedNames FoldNames(const std::vector<Record>& list, std::string Record::*field) {
  FoldedNames names;
  names.keys.reserve(list.size());
  names.texts.reserve(list.size());
  for (const Record& record : list) {
    FoldedName name = FoldName(record.*field);
    names.keys.push_back(name.key);
    names.texts.push_back(std::move(name.text));
  }
  return names;
}
// The name at index i of the list is the name, case-blind.
inline bool SameName(const FoldedNames& names, int i, const FoldedName& name) {
  const size_t at = static_cast<size_t>(i);
  return names.keys[at] == name.key && names.texts[at] == name.text;
}
// Whether needle stands anywhere in text, case-blind.
bool ContainsNoCase(const std::string& text, const std::string& needle);
// Splits at every separator, empty pieces kept; the empty text gives no piece.
std::vector<std::string> Split(const std::string& text, const std::string& separator);
// Replaces every occurrence (binary compare).
std::string ReplaceAll(const std::string& text, const std::string& find, const std::string& with);
// The text in front of the first NUL, or all of it.
std::string CutAtNul(const std::string& text);
// The leading decimal number of a text: sign, digits, point and exponent,
// blanks skipped; 0 when there is none.
double Val(const std::string& text);
// A number to 16 signed bits, halves to the even neighbour; fatal Overflow
// when it does not fit.
int16_t CInt(double value);
// A text to a Boolean as the language converts it: "True" or "False" in any
// case, or a number (not 0 is True); fatal Type mismatch otherwise.
bool CBool(const std::string& text);
// Decimal text of a number.
std::string Str(long long value);

// The last index of a list with lower bound 0 (-1 when it has no element).
template <class T>
int UBound(const std::vector<T>& list) {
  return static_cast<int>(list.size()) - 1;
}
