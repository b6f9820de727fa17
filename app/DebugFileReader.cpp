// Reading a debug file back into text.
//
// The engine writes its log as UTF-16LE bytes b[0..n], reordered (old
// indices 0, 1, n, 2, n-1, 3, n-2, ... ending in the middle) and then summed
// (each byte plus the byte written before it, mod 256). The file is written
// over an older one without truncating it, so it may hold this run's L bytes
// followed by the tail of an older, longer run; L is written nowhere.
//
// Undoing the sum gives the reordered bytes d[]. Read with the back half
// reversed, their pairing into UTF-16 code units is the same for every
// length L:
//   front stream  F(0) = (d0, d1),  F(k) = (d[4k-1], d[4k+1])   text units 0, 1, 2, ...
//   back stream   B(r) = (d[4r+4], d[4r+2])                     text units N-1, N-2, ...
// The text of a length L (N = L/2 units) is a prefix of the front stream,
// a prefix of the back stream read backwards, and, when L is a multiple of
// four, one unit in the middle made of d[L-1] and d[L-2]. So a length that
// is too short only cuts a piece out of the middle of the text, and a length
// that is too long puts bytes of the older run into its middle.
//
// The reader takes the largest even L whose text is a debug log: well-formed
// UTF-16 of text characters (CR only before LF, LF only after CR, no other
// control character, no noncharacter, no lone surrogate) that begins with a
// line of 80 asterisks and ends with CR LF. Validity of a stream prefix is
// monotone, so one pass over each stream gives the longest valid prefixes,
// and every length is then judged in constant time: the whole search is
// linear in the size of the file.
//
// What tells this run's end from an older run's tail is the byte d[L]: the
// older run's sum stands behind this run's last sum there, so d[L] is an
// arbitrary value, while the bytes after it are the older run's own
// reordered bytes and decode as that run's text. d[L] is the low byte of
// the back-stream unit B(L/4-1) when L is a multiple of four; otherwise it
// is the high byte of B((L-2)/4), or of the middle unit of length L+2. Every
// longer length holds that unit, so all of them fail when it is not text.
// A high byte at random mostly gives a character of a script found nowhere
// else in the text. So when the text of the largest valid length holds a
// character that stands alone in its script (Latin letters and the
// punctuation of the Western code page never count as alone; the signs of
// the Latin-1 block, such as ° or £, do), and d[L] of a shorter valid
// length L lies in that character, the reader takes L instead, and goes on
// the same way from there.
//
// Limitation: the format has no length, no marker and no check sum, so a
// tail whose first byte happens to make an ordinary character cannot be
// told apart from the log itself. For a log in Latin script this happens
// about twice in three when L is a multiple of four (d[L] then makes a
// character of U+0000..U+00FF, of which only the controls and the Latin-1
// signs give it away) and seldom otherwise. The reader then returns the
// longer text, with a piece of the older run in its middle, and reports
// nothing dropped. The other way round, a log whose back half holds the only
// character of some script (a single Chinese character, or a single ° sign,
// in an English log) may be taken as ending there.
#include "app/DebugFileReader.h"

#include <array>
#include <cstddef>

namespace {

constexpr uint16_t kCR = 0x0D;
constexpr uint16_t kLF = 0x0A;
constexpr size_t kStarLine = 80;
constexpr size_t kFirstLineUnits = kStarLine + 2;   // the asterisks and CR LF
constexpr size_t kMinLength = 2 * kFirstLineUnits;  // bytes of the shortest log

bool IsHighSurrogate(uint16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(uint16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// A unit that can never stand in a log, whatever its neighbours.
bool IsBadUnit(uint16_t u) {
  if (u < 0x20) return u != kCR && u != kLF;
  if (u >= 0x7F && u <= 0x9F) return true;
  if (u >= 0xFDD0 && u <= 0xFDEF) return true;
  return u == 0xFFFE || u == 0xFFFF;
}

// Whether y may follow x in the text.
bool PairOk(uint16_t x, uint16_t y) {
  return (x == kCR) == (y == kLF) && IsHighSurrogate(x) == IsLowSurrogate(y);
}

// The script group of a unit for the stray-character test; -1 for the
// characters that may well stand alone in a log.
constexpr int kGroups = 16 + 256;
int GroupOf(uint16_t u) {
  // The signs of the Latin-1 block (the letters and ª º µ · count as Latin).
  if ((u >= 0xA0 && u <= 0xBF && u != 0xAA && u != 0xB5 && u != 0xB7 && u != 0xBA) || u == 0xD7 ||
      u == 0xF7)
    return 8;
  // Latin, and the punctuation and symbols of the Western code page.
  if (u < 0x0370 || (u >= 0x1E00 && u <= 0x1EFF) || u == 0xFFFD || u == 0xFEFF) return -1;
  switch (u) {
    case 0x2013: case 0x2014: case 0x2018: case 0x2019: case 0x201A: case 0x201C:
    case 0x201D: case 0x201E: case 0x2020: case 0x2021: case 0x2022: case 0x2026:
    case 0x2030: case 0x2039: case 0x203A: case 0x20AC: case 0x2122:
      return -1;
    default:
      break;
  }
  if ((u >= 0x1100 && u <= 0x11FF) || (u >= 0x2E80 && u <= 0x9FFF) || (u >= 0xA960 && u <= 0xA97F) ||
      (u >= 0xAC00 && u <= 0xD7FF) || (u >= 0xF900 && u <= 0xFAFF) || (u >= 0xFE30 && u <= 0xFE4F) ||
      (u >= 0xFF00 && u <= 0xFFEF))
    return 0;   // Chinese, Japanese and Korean, which one code page mixes
  if (u >= 0xD800 && u <= 0xDFFF) return 1;   // characters beyond the BMP
  if (u >= 0x2000 && u <= 0x2BFF) return 7;   // other punctuation, symbols, arrows, shapes
  if (u <= 0x03FF || (u >= 0x1F00 && u <= 0x1FFF)) return 2;   // Greek
  if (u >= 0x0400 && u <= 0x052F) return 3;                    // Cyrillic
  if (u <= 0x058F) return 4;                                   // Armenian
  if (u <= 0x05FF || (u >= 0xFB1D && u <= 0xFB4F)) return 5;   // Hebrew
  if (u <= 0x06FF || (u >= 0x0750 && u <= 0x077F) || (u >= 0xFB50 && u <= 0xFDFF) ||
      (u >= 0xFE70 && u <= 0xFEFE))
    return 6;   // Arabic
  return 16 + (u >> 8);
}

// Counts the characters of each script group in a text; tells how many
// groups hold exactly one.
class StrayCounter {
 public:
  void Add(uint16_t u) { Change(u, +1); }
  void AddAll(const uint16_t* units, size_t count) {
    for (size_t i = 0; i < count; ++i)
      if (units[i] >= 0xA0) Change(units[i], +1);
  }
  void Remove(uint16_t u) { Change(u, -1); }
  bool AnyStray() const { return strays_ > 0; }
  // Whether u stands alone in its script group.
  bool IsStray(uint16_t u) const {
    int g = GroupOf(u);
    return g >= 0 && counts_[g] == 1;
  }

 private:
  void Change(uint16_t u, int delta) {
    int g = GroupOf(u);
    if (g < 0) return;
    if (counts_[g] == 1) --strays_;
    counts_[g] += delta;
    if (counts_[g] == 1) ++strays_;
  }
  std::array<int64_t, kGroups> counts_{};
  size_t strays_ = 0;
};

// The code units of the two streams, with the sum undone.
class Streams {
 public:
  explicit Streams(const std::vector<uint8_t>& file) : f_(file.data()), size_(file.size()) {
    const uint8_t* f = f_;
    const size_t n = size_;
    if (n >= 2) {
      front_.resize(1 + (n - 2) / 4);
      front_[0] = static_cast<uint16_t>(f[0] | static_cast<uint8_t>(f[1] - f[0]) << 8);
      uint16_t* out = front_.data();
      for (size_t k = 1, count = front_.size(); k < count; ++k) {
        const uint8_t* q = f + 4 * k;   // d[4k-1] = q[-1] - q[-2], d[4k+1] = q[1] - q[0]
        out[k] = static_cast<uint16_t>(static_cast<uint8_t>(q[-1] - q[-2]) |
                                       static_cast<uint8_t>(q[1] - q[0]) << 8);
      }
    }
    if (n >= 5) {
      back_.resize(1 + (n - 5) / 4);
      uint16_t* out = back_.data();
      for (size_t r = 0, count = back_.size(); r < count; ++r) {
        const uint8_t* q = f + 4 * r;   // d[4r+4] = q[4] - q[3], d[4r+2] = q[2] - q[1]
        out[r] = static_cast<uint16_t>(static_cast<uint8_t>(q[4] - q[3]) |
                                       static_cast<uint8_t>(q[2] - q[1]) << 8);
      }
    }
  }

  size_t size() const { return size_; }
  // Front unit k, back unit r (r-th from the end of the text).
  const std::vector<uint16_t>& FrontUnits() const { return front_; }
  const std::vector<uint16_t>& BackUnits() const { return back_; }
  uint16_t Front(size_t k) const { return front_[k]; }
  uint16_t Back(size_t r) const { return back_[r]; }
  // The middle unit of a length that is a multiple of four: (d[L-1], d[L-2]).
  uint16_t Middle(size_t length) const {
    return static_cast<uint16_t>(D(length - 1) | D(length - 2) << 8);
  }

 private:
  uint8_t D(size_t i) const { return static_cast<uint8_t>(i == 0 ? f_[0] : f_[i] - f_[i - 1]); }

  const uint8_t* f_;
  size_t size_;
  std::vector<uint16_t> front_, back_;
};

// How the text of one length is put together from the streams.
struct Shape {
  size_t front = 0;     // units from the front stream
  bool middle = false;  // one unit from d[L-1] and d[L-2]
  size_t back = 0;      // units from the back stream
};

Shape ShapeOf(size_t length) {
  Shape s;
  if (length % 4 == 0) {
    s.front = length / 4;
    s.middle = true;
    s.back = length / 4 - 1;
  } else {
    s.front = (length + 2) / 4;
    s.back = (length - 2) / 4;
  }
  return s;
}

uint16_t TextUnit(const Streams& st, size_t length, const Shape& s, size_t i) {
  if (i < s.front) return st.Front(i);
  if (s.middle && i == s.front) return st.Middle(length);
  return st.Back(length / 2 - 1 - i);
}

// The unit that holds d[length] in the text of the longer length wider:
// the byte after a run's end, which an older run's tail leaves arbitrary.
uint16_t SeamUnit(const Streams& st, size_t wider, size_t length) {
  if (length % 4 == 2) return wider == length + 2 ? st.Middle(wider) : st.Back((length - 2) / 4);
  return st.Back(length / 4 - 1);
}

// The longest prefix of a stream, taken in text order, that breaks no rule
// inside itself. The back stream runs backwards through the text.
size_t LongestPrefix(const std::vector<uint16_t>& units, bool backwards) {
  const uint16_t* u = units.data();
  size_t k = 0;
  for (const size_t count = units.size(); k < count; ++k) {
    if (IsBadUnit(u[k])) break;
    if (k > 0 && !(backwards ? PairOk(u[k], u[k - 1]) : PairOk(u[k - 1], u[k]))) break;
  }
  return k;
}

bool StartsWithStarLine(const Streams& st, size_t length, const Shape& s) {
  for (size_t i = 0; i < kFirstLineUnits; ++i) {
    uint16_t want = i < kStarLine ? '*' : i == kStarLine ? kCR : kLF;
    if (TextUnit(st, length, s, i) != want) return false;
  }
  return true;
}

// Writes one character as UTF-8 at out; gives the end.
char* PutUtf8(char* out, uint32_t cp) {
  if (cp < 0x80) {
    *out++ = static_cast<char>(cp);
  } else if (cp < 0x800) {
    *out++ = static_cast<char>(0xC0 | cp >> 6);
    *out++ = static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *out++ = static_cast<char>(0xE0 | cp >> 12);
    *out++ = static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    *out++ = static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | cp >> 18);
    *out++ = static_cast<char>(0x80 | (cp >> 12 & 0x3F));
    *out++ = static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    *out++ = static_cast<char>(0x80 | (cp & 0x3F));
  }
  return out;
}

// The text of a valid length as UTF-8.
std::string TextOf(const Streams& st, size_t length) {
  const Shape s = ShapeOf(length);
  std::vector<uint16_t> units;
  units.reserve(length / 2);
  units.insert(units.end(), st.FrontUnits().begin(), st.FrontUnits().begin() + s.front);
  if (s.middle) units.push_back(st.Middle(length));
  units.insert(units.end(), st.BackUnits().rend() - s.back, st.BackUnits().rend());

  std::string text(units.size() * 3, '\0');   // at most three bytes a unit
  char* out = text.data();
  const uint16_t* u = units.data();
  for (size_t i = 0, count = units.size(); i < count; ++i) {
    if (u[i] < 0x80) {
      *out++ = static_cast<char>(u[i]);
    } else if (IsHighSurrogate(u[i])) {   // validated: a low surrogate follows
      out = PutUtf8(out, 0x10000 + ((static_cast<uint32_t>(u[i]) - 0xD800) << 10) + (u[i + 1] - 0xDC00));
      ++i;
    } else {
      out = PutUtf8(out, u[i]);
    }
  }
  text.resize(static_cast<size_t>(out - text.data()));
  return text;
}

}  // namespace

bool DecodeDebugFile(const std::vector<uint8_t>& bytes, DecodedDebugFile& decoded,
                     std::string& error) {
  if (bytes.empty()) {
    error = "the file is empty";
    return false;
  }
  const Streams st(bytes);
  const size_t top = st.size() - st.size() % 2;
  const size_t maxFront = LongestPrefix(st.FrontUnits(), false);
  const size_t maxBack = LongestPrefix(st.BackUnits(), true);
  const bool frontStars = maxFront >= kFirstLineUnits && [&] {
    Shape wide{kFirstLineUnits, false, 0};
    return StartsWithStarLine(st, 2 * kFirstLineUnits, wide);
  }();
  const bool endsWithLF = !st.BackUnits().empty() && st.Back(0) == kLF;

  // The characters of the text of the length under test, kept up to date
  // as the length goes down by two bytes at a time.
  StrayCounter strays;
  if (top >= kMinLength) {
    Shape s = ShapeOf(top);
    strays.AddAll(st.FrontUnits().data(), s.front);
    if (s.middle) strays.Add(st.Middle(top));
    strays.AddAll(st.BackUnits().data(), s.back);
  }

  // The largest valid length, then, while its text has a stray character,
  // a shorter valid length whose d[L] lies in that character.
  size_t chosen = 0;
  StrayCounter chosenText;
  for (size_t length = top; length >= kMinLength; length -= 2) {
    const Shape s = ShapeOf(length);
    bool valid = s.front <= maxFront && s.back <= maxBack && endsWithLF && s.back >= 1;
    if (valid) {
      uint16_t lastFront = st.Front(s.front - 1), firstBack = st.Back(s.back - 1);
      if (s.middle) {
        uint16_t m = st.Middle(length);
        valid = !IsBadUnit(m) && PairOk(lastFront, m) && PairOk(m, firstBack);
      } else {
        valid = PairOk(lastFront, firstBack);
      }
    }
    if (valid)
      valid = s.front >= kFirstLineUnits ? frontStars : StartsWithStarLine(st, length, s);
    if (valid && (chosen == 0 || chosenText.IsStray(SeamUnit(st, chosen, length)))) {
      chosen = length;
      chosenText = strays;
      if (!strays.AnyStray()) break;
    }
    // Down to length - 2: see ShapeOf.
    if (length - 2 < kMinLength) break;
    if (s.middle) {
      strays.Remove(st.Middle(length));
    } else {
      strays.Remove(st.Front(s.front - 1));
      strays.Remove(st.Back(s.back - 1));
      strays.Add(st.Middle(length - 2));
    }
  }
  if (chosen == 0) {
    error = "the file holds no debug log";
    return false;
  }
  decoded.text = TextOf(st, chosen);
  decoded.droppedBytes = st.size() - chosen;
  return true;
}
