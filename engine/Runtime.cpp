#include "engine/Runtime.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

ErrObject Err;

namespace {

std::vector<const void*> gLoadedForms;

const char* FatalDescription(int32_t number) {
  switch (number) {
    case kErrOverflow: return "Overflow";
    case kErrSubscriptOutOfRange: return "Subscript out of range";
    case kErrTypeMismatch: return "Type mismatch";
    default: return "Application-defined or object-defined error";
  }
}

char FoldCase(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

void RaiseFatal(int32_t number) { throw FatalError{number, FatalDescription(number)}; }

void RaiseFatal(int32_t number, const std::string& description) {
  throw FatalError{number, description};
}

void FormLoaded(const void* form) {
  if (!IsFormLoaded(form)) gLoadedForms.push_back(form);
}

void FormUnloaded(const void* form) {
  gLoadedForms.erase(std::remove(gLoadedForms.begin(), gLoadedForms.end(), form),
                     gLoadedForms.end());
}

bool IsFormLoaded(const void* form) {
  return std::find(gLoadedForms.begin(), gLoadedForms.end(), form) != gLoadedForms.end();
}

int LoadedFormCount() { return static_cast<int>(gLoadedForms.size()); }

void ClearLoadedForms() { gLoadedForms.clear(); }

const char* BoolText(bool value) { return value ? "True" : "False"; }

std::string TrimBlanks(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(' ');
  return text.substr(first, last - first + 1);
}

bool EqualsNoCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (FoldCase(a[i]) != FoldCase(b[i])) return false;
  }
  return true;
}

FoldedName FoldName(const std::string& name) {
  FoldedName folded;
  folded.text.resize(name.size());
  uint64_t key = 14695981039346656037u;  // FNV-1a
  for (size_t i = 0; i < name.size(); ++i) {
    folded.text[i] = FoldCase(name[i]);
    key = (key ^ static_cast<unsigned char>(folded.text[i])) * 1099511628211u;
  }
  folded.key = key;
  return folded;
}

bool ContainsNoCase(const std::string& text, const std::string& needle) {
  if (needle.empty()) return true;
  if (needle.size() > text.size()) return false;
  const auto it = std::search(text.begin(), text.end(), needle.begin(), needle.end(),
                              [](char x, char y) { return FoldCase(x) == FoldCase(y); });
  return it != text.end();
}

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
  std::vector<std::string> pieces;
  if (text.empty()) return pieces;
  if (separator.empty()) {
    pieces.push_back(text);
    return pieces;
  }
  size_t start = 0;
  for (;;) {
    const size_t at = text.find(separator, start);
    if (at == std::string::npos) {
      pieces.push_back(text.substr(start));
      return pieces;
    }
    pieces.push_back(text.substr(start, at - start));
    start = at + separator.size();
  }
}

std::string ReplaceAll(const std::string& text, const std::string& find, const std::string& with) {
  if (find.empty()) return text;
  std::string result;
  result.reserve(text.size());
  size_t start = 0;
  for (;;) {
    const size_t at = text.find(find, start);
    if (at == std::string::npos) {
      result.append(text, start, std::string::npos);
      return result;
    }
    result.append(text, start, at - start);
    result += with;
    start = at + find.size();
  }
}

std::string CutAtNul(const std::string& text) {
  const size_t at = text.find('\0');
  return at == std::string::npos ? text : text.substr(0, at);
}

double Val(const std::string& text) {
  const size_t n = text.size();
  size_t i = 0;
  auto skipBlanks = [&] {
    while (i < n && text[i] == ' ') ++i;
  };

  std::string number;
  skipBlanks();
  if (i < n && (text[i] == '+' || text[i] == '-')) number += text[i++];

  bool digits = false;
  bool point = false;
  for (;;) {
    skipBlanks();
    if (i >= n) break;
    const char c = text[i];
    if (IsDigit(c)) {
      number += c;
      digits = true;
    } else if (c == '.' && !point) {
      number += c;
      point = true;
    } else {
      break;
    }
    ++i;
  }
  if (!digits) return 0.0;

  skipBlanks();
  if (i < n && (text[i] == 'e' || text[i] == 'E' || text[i] == 'd' || text[i] == 'D')) {
    std::string exponent = "e";
    ++i;
    skipBlanks();
    if (i < n && (text[i] == '+' || text[i] == '-')) exponent += text[i++];
    bool exponentDigits = false;
    for (;;) {
      skipBlanks();
      if (i < n && IsDigit(text[i])) {
        exponent += text[i++];
        exponentDigits = true;
      } else {
        break;
      }
    }
    if (exponentDigits) number += exponent;
  }
  return std::strtod(number.c_str(), nullptr);
}

int16_t CInt(double value) {
  if (!std::isfinite(value)) RaiseFatal(kErrOverflow);
  const double rounded = std::nearbyint(value);  // the default mode: halves to even
  if (rounded < -32768.0 || rounded > 32767.0) RaiseFatal(kErrOverflow);
  return static_cast<int16_t>(rounded);
}

namespace {

// Whether text is a whole number in the language's literal forms: decimal
// with sign, point and exponent, or &H hexadecimal, or &O octal. Blanks and
// tabs around it are allowed.
bool ParseNumber(const std::string& raw, double& value) {
  const size_t first = raw.find_first_not_of(" \t");
  if (first == std::string::npos) return false;
  const size_t last = raw.find_last_not_of(" \t");
  const std::string text = raw.substr(first, last - first + 1);

  if (text.size() > 2 && text[0] == '&' &&
      (text[1] == 'H' || text[1] == 'h' || text[1] == 'O' || text[1] == 'o')) {
    const bool hex = text[1] == 'H' || text[1] == 'h';
    double v = 0;
    for (size_t i = 2; i < text.size(); ++i) {
      const char c = FoldCase(text[i]);
      int digit;
      if (c >= '0' && c <= '9')
        digit = c - '0';
      else if (hex && c >= 'a' && c <= 'f')
        digit = c - 'a' + 10;
      else
        return false;
      if (!hex && digit > 7) return false;
      v = v * (hex ? 16 : 8) + digit;
    }
    value = v;
    return true;
  }

  size_t i = 0;
  const size_t n = text.size();
  if (text[i] == '+' || text[i] == '-') ++i;
  bool digits = false;
  while (i < n && IsDigit(text[i])) {
    ++i;
    digits = true;
  }
  if (i < n && text[i] == '.') {
    ++i;
    while (i < n && IsDigit(text[i])) {
      ++i;
      digits = true;
    }
  }
  if (!digits) return false;
  if (i < n && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < n && (text[i] == '+' || text[i] == '-')) ++i;
    bool exponentDigits = false;
    while (i < n && IsDigit(text[i])) {
      ++i;
      exponentDigits = true;
    }
    if (!exponentDigits) return false;
  }
  if (i != n) return false;
  value = std::strtod(text.c_str(), nullptr);
  return true;
}

}  // namespace

bool CBool(const std::string& text) {
  if (EqualsNoCase(text, "True")) return true;
  if (EqualsNoCase(text, "False")) return false;
  double value = 0;
  if (!ParseNumber(text, value)) RaiseFatal(kErrTypeMismatch);
  return value != 0.0;
}

std::string Str(long long value) { return std::to_string(value); }
