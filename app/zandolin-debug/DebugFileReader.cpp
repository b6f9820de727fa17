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
// A length is valid when its text is a debug log: well-formed UTF-16 (no
// lone surrogate, CR only before LF, LF only after CR, no NUL, no
// noncharacter U+FFFE or U+FFFF) that begins with a line of 80 asterisks and
// ends with CR LF. Other control characters are valid: a genuine log holds
// a tab of an INI value, or a byte the code page leaves undefined. Validity
// of a stream prefix is monotone, so one pass over each stream gives the
// longest valid prefixes, and every length is then judged in constant time.
//
// Where this run ends. With a tail behind this run's L bytes, the front
// stream goes on past the joint with the older run's text at the same index,
// the back stream with the older run's text at the same distance from its
// end, and the byte d[L] between the two runs' sums is arbitrary: it is the
// low byte of the back unit B(L/4-1) when L is a multiple of four, else the
// high byte of B((L-2)/4). So the text of the true length is a genuine log
// across its joint, while the longest text holds one arbitrary unit there.
// A file without a tail can look the same: a log may hold a character that
// looks arbitrary (a name in another script, a damaged character), and its
// text cut at the mirror place can happen to read on. Since a reading cut
// short hides the middle of a log, while the longest reading hides nothing
// of it, the reader takes the longest valid length unless a shorter one has
// every sign of an end:
//   - Candidates: the back stream breaks at the unit that holds d[L], that
//     is, some window of four units around it occurs nowhere else in the
//     file.
//   - The text across the joint, six units on each side, stands elsewhere
//     in the file; the unit that holds d[L] stands among ASCII characters and
//     not in text that stands elsewhere with only that unit changed (four
//     units on each side); the line across the joint keeps the form of the
//     engine's lines of asterisks (80 of them, a banner title, or a header of
//     the outcome text "* ... *").
//   - Evidence, as a log-likelihood ratio of "the text of L, then a tail"
//     against "the text of the longest valid length" under a model of the
//     file's own text (counts of one to four units over both streams in text
//     order, each order backing off to the one below, Witten-Bell with a
//     generous weight for units not yet seen after a context; the windows
//     that hold the units judged are left out of the counts): the unit that
//     holds d[L] as an arbitrary byte against its neighbours there, which
//     must favour the byte; the three units after the joint after the text
//     before the joint, against after their own neighbours in the longest
//     text; the front stream after the joint as an older run's text (often
//     the same text again) against the continuation of the longest text; a
//     line across the joint that stands elsewhere in the file counts for the
//     joint, one that does not a little against, a line of asterisks not at
//     all.
//   - The bar is higher when L is a multiple of four (d[L] is then a low
//     byte, often an ordinary character) than otherwise (d[L] is a high byte,
//     mostly a character of no script in the log), and rises with the log of
//     the number of candidates beyond a thousand. A lower bar names possible
//     ends without reading them.
// The best candidate over the bar wins; then, while a clearly shorter one is
// over the bar too, the best of those, since every older run behind leaves a
// joint of its own. The whole search is linear in the size of the file: the
// counts are taken from at most about a million units of each stream, and
// only the candidates are weighed.
//
// Limitation: the format has no length, no marker and no check sum, so the
// end of a run can only be inferred. Measured on pairs of runs of the engine
// on simulated clients, the second run shorter in many different ways (four
// sets of 200 files with a tail), the reader finds the newest run's end in
// 54 % of the files with a tail (49 to 60 % a set): 69 % when L is not a
// multiple of four, 39 % when it is; on pairs of texts made of log lines, in
// 60 %. It names the end without reading it in 6 % more. The rest read as the
// longer text, with a piece of the older run in its middle. Of 5367 files
// without a tail (2367 genuine logs, 1000 logs with names in several scripts,
// long INI values and the mail dialogue, 2000 of those mutated, many of them
// with characters changed as the byte after an end changes one) none was
// cut short, and one was given a possible end. The bars stand three units
// of evidence above the strongest any file without a tail gave in the sets
// the rules were made on.
#include "app/zandolin-debug/DebugFileReader.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr uint16_t kCR = 0x0D;
constexpr uint16_t kLF = 0x0A;
constexpr uint16_t kStar = '*';
constexpr uint16_t kBlank = ' ';
constexpr size_t kStarLine = 80;
constexpr size_t kFirstLineUnits = kStarLine + 2;   // the asterisks and CR LF
constexpr size_t kMinLength = 2 * kFirstLineUnits;  // bytes of the shortest log
constexpr size_t kNone = SIZE_MAX;

// The title lines of the engine's banners, asterisks included.
constexpr std::string_view kBannerTitles[] = {
    "******************************     BEGIN DEBUG     *****************************",
    "*******************************     END DEBUG     ******************************",
    "************************     COMMAND LINE PARAMETERS    ***********************",
    "****************************     NETWORK PRINTERS    ***************************",
    "****************************     MOVING USING AD    ***************************",
    "**********************     MOVING USING PRINTER TO PRINTER    **********************",
    "********************     MOVING USING SERVER TO SERVER    ********************",
    "*********************     MOVING USING MIXED TO MIXED    ********************",
    "************************     NOTFICATION VIA EMAIL    ************************",
    "**********************     NOTIFICATION VIA FILE OUTPUT     *********************",
    "*********************     NOTIFICATION VIA CLIENT POP-UP    ********************",
    "***********************     NOTIFICATION VIA EVENT LOG    **********************",
};

bool IsHighSurrogate(uint16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(uint16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// A unit that can never stand in a log, whatever its neighbours: the
// engine's text comes from its ANSI code page, which gives no NUL and no
// noncharacter. Other control characters do occur: a tab in an INI value,
// a byte the code page leaves undefined, a value cut inside a character.
bool IsBadUnit(uint16_t u) { return u == 0 || u == 0xFFFE || u == 0xFFFF; }

// Whether y may follow x in the text.
bool PairOk(uint16_t x, uint16_t y) {
  return (x == kCR) == (y == kLF) && IsHighSurrogate(x) == IsLowSurrogate(y);
}

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
  const std::vector<uint16_t>& FrontUnits() const { return front_; }
  const std::vector<uint16_t>& BackUnits() const { return back_; }
  size_t FrontCount() const { return front_.size(); }
  size_t BackCount() const { return back_.size(); }
  // Front unit k, back unit r (r-th from the end of the text).
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
  size_t back = 0;      // units from the back stream; B(back) holds d[L]
  size_t joint = 0;     // the last unit before the back stream's units
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
  s.joint = length / 4;
  return s;
}

uint16_t TextUnit(const Streams& st, size_t length, const Shape& s, size_t i) {
  if (i < s.front) return st.Front(i);
  if (s.middle && i == s.front) return st.Middle(length);
  return st.Back(length / 2 - 1 - i);
}

// The units of the text of one length, by index.
class LengthText {
 public:
  LengthText(const Streams& st, size_t length) : st_(st), length_(length), shape_(ShapeOf(length)) {}
  uint16_t operator[](size_t i) const { return TextUnit(st_, length_, shape_, i); }
  size_t size() const { return length_ / 2; }
  size_t length() const { return length_; }
  const Shape& shape() const { return shape_; }
  // The index of back unit r.
  size_t IndexOfBack(size_t r) const { return size() - 1 - r; }

 private:
  const Streams& st_;
  size_t length_;
  Shape shape_;
};

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
    uint16_t want = i < kStarLine ? kStar : i == kStarLine ? kCR : kLF;
    if (TextUnit(st, length, s, i) != want) return false;
  }
  return true;
}

// Which lengths give a debug log.
class Validity {
 public:
  explicit Validity(const Streams& st)
      : st_(st),
        maxFront_(LongestPrefix(st.FrontUnits(), false)),
        maxBack_(LongestPrefix(st.BackUnits(), true)),
        endsWithLF_(st.BackCount() > 0 && st.Back(0) == kLF) {
    frontStars_ = maxFront_ >= kFirstLineUnits &&
                  StartsWithStarLine(st, 2 * kFirstLineUnits, Shape{kFirstLineUnits, false, 0, 0});
  }

  bool Valid(size_t length) const {
    const Shape s = ShapeOf(length);
    if (!(s.front <= maxFront_ && s.back <= maxBack_ && endsWithLF_ && s.back >= 1)) return false;
    const uint16_t lastFront = st_.Front(s.front - 1), firstBack = st_.Back(s.back - 1);
    if (s.middle) {
      const uint16_t m = st_.Middle(length);
      if (IsBadUnit(m) || !PairOk(lastFront, m) || !PairOk(m, firstBack)) return false;
    } else if (!PairOk(lastFront, firstBack)) {
      return false;
    }
    return s.front >= kFirstLineUnits ? frontStars_ : StartsWithStarLine(st_, length, s);
  }

 private:
  const Streams& st_;
  size_t maxFront_, maxBack_;
  bool endsWithLF_;
  bool frontStars_ = false;
};

// ---------------------------------------------------------------------------
// Statistics of the file's own text.

constexpr int kOrder = 4;                 // units in the longest window counted
constexpr int kContext = kOrder - 1;

// One stream in text order: the front stream as it stands, the back stream
// from its far end.
struct TextOrder {
  const uint16_t* units;
  size_t count;
  bool reversed;
  uint16_t operator[](size_t i) const { return reversed ? units[count - 1 - i] : units[i]; }
};

TextOrder FrontOrder(const Streams& st) { return {st.FrontUnits().data(), st.FrontCount(), false}; }
TextOrder BackOrder(const Streams& st) { return {st.BackUnits().data(), st.BackCount(), true}; }

// Which windows of a stream are counted, by the index of their first unit
// in text order: all of them, or in a very long stream blocks spread over
// it, about half a million units in all, and always the last block, which
// in the back stream holds the end of the text.
class Sample {
 public:
  explicit Sample(size_t count)
      : count_(count), stride_(count <= kUnits ? 1 : (count + kUnits - 1) / kUnits) {}
  bool Holds(size_t start) const {
    return stride_ == 1 || (start >> kBlockBits) % stride_ == 0 || count_ - start <= kBlock;
  }
  // The first index at or after i that starts a counted window.
  size_t NextFrom(size_t i) const {
    if (Holds(i)) return i;
    const size_t next = ((i >> kBlockBits) / stride_ * stride_ + stride_) << kBlockBits;
    return std::min(next, count_ > kBlock ? count_ - kBlock : 0);
  }

 private:
  static constexpr size_t kUnits = size_t{1} << 19;
  static constexpr int kBlockBits = 12;
  static constexpr size_t kBlock = size_t{1} << kBlockBits;
  size_t count_, stride_;
};

// The key of a sequence of units: a single unit is its own key, a longer
// sequence the key of all but its last unit extended by that unit.
uint64_t Extend(uint64_t key, uint16_t u) {
  uint64_t h = (key + 1) * 0x9E3779B97F4A7C15ull + u;
  return h ^ (h >> 31);
}
uint64_t Pack(const uint16_t* units, int count) {
  uint64_t key = units[0];
  for (int i = 1; i < count; ++i) key = Extend(key, units[i]);
  return key;
}

// Counts by key: occurrences, and for contexts the number of different
// units seen after them.
class GramTable {
 public:
  GramTable() { Resize(1u << 8); }

  // Whether the key is new.
  bool Add(uint64_t key) {
    const size_t i = Find(key);
    if (counts_[i]++ != 0) return false;
    keys_[i] = key;
    if (++used_ * 2 > keys_.size()) Resize(keys_.size() * 2);
    return true;
  }
  uint32_t Count(uint64_t key) const { return counts_[Find(key)]; }
  uint32_t Types(uint64_t key) const { return types_[Find(key)]; }
  void AddType(uint64_t key) {
    const size_t i = Find(key);
    if (counts_[i] != 0) ++types_[i];
  }

 private:
  size_t Find(uint64_t key) const {
    const uint64_t* keys = keys_.data();
    const uint32_t* counts = counts_.data();
    size_t i = static_cast<size_t>((key * 0x9E3779B97F4A7C15ull) >> shift_);
    while (counts[i] != 0 && keys[i] != key) i = (i + 1) & mask_;
    return i;
  }
  void Resize(size_t size) {
    std::vector<uint64_t> keys(size, 0);
    std::vector<uint32_t> counts(size, 0), types(size, 0);
    keys.swap(keys_);
    counts.swap(counts_);
    types.swap(types_);
    mask_ = size - 1;
    shift_ = 64 - std::countr_zero(size);
    for (size_t i = 0; i < keys.size(); ++i) {
      if (counts[i] == 0) continue;
      const size_t at = Find(keys[i]);
      keys_[at] = keys[i];
      counts_[at] = counts[i];
      types_[at] = types[i];
    }
  }

  std::vector<uint64_t> keys_;
  std::vector<uint32_t> counts_, types_;
  size_t used_ = 0;
  size_t mask_ = 0;
  int shift_ = 64;
};

// Occurrences left out of the counts while one place of the file is
// judged: the windows that hold the units judged.
class HeldOut {
 public:
  void Clear() { items_.clear(); }
  void Add(int order, uint64_t key) {
    for (Item& item : items_) {
      if (item.order == order && item.key == key) {
        ++item.count;
        return;
      }
    }
    items_.push_back(Item{order, key, 1});
  }
  uint32_t Count(int order, uint64_t key) const {
    for (const Item& item : items_)
      if (item.order == order && item.key == key) return item.count;
    return 0;
  }

 private:
  struct Item {
    int order;
    uint64_t key;
    uint32_t count;
  };
  std::vector<Item> items_;
};

// The chance of a unit after up to three others, from the counts of units
// and their sequences in both streams; each order backs off to the one
// below (Witten-Bell, the weight of the order below being kEscape times the
// number of different units seen after the context).
class TextModel {
 public:
  explicit TextModel(const Streams& st) {
    for (const TextOrder& s : {FrontOrder(st), BackOrder(st)}) {
      const Sample sample(s.count);
      for (size_t i = sample.NextFrom(0); i < s.count; i = sample.NextFrom(i + 1)) {
        // The windows that start at unit i.
        uint64_t key = s[i];
        if (tables_[1].Add(key)) ++distinctUnits_;
        ++total_;
        for (int order = 2; order <= kOrder && i + order <= s.count; ++order) {
          const uint64_t context = key;
          key = Extend(key, s[i + order - 1]);
          if (tables_[order].Add(key)) tables_[order - 1].AddType(context);
        }
      }
    }
  }

  uint32_t Count(int order, uint64_t key) const { return tables_[order].Count(key); }

  // The chance of u after the k units of context, without the held-out
  // occurrences.
  double Chance(const uint16_t* context, int k, uint16_t u, const HeldOut& held) const {
    double p = (Less(Count(1, u), held.Count(1, u)) + distinctUnits_ * Unseen(u)) /
               (static_cast<double>(total_) + distinctUnits_);
    for (int len = 1; len <= k && len < kOrder; ++len) {
      const uint64_t h = Pack(context + k - len, len);
      const uint64_t hu = Extend(h, u);
      const double seenAfter = tables_[len].Types(h);
      const double escape = kEscape * std::max(seenAfter, 1.0);
      p = (Less(Count(len + 1, hu), held.Count(len + 1, hu)) + escape * p) /
          (Less(Count(len, h), held.Count(len, h)) + escape);
    }
    return p;
  }

 private:
  // A log of one file is a small sample of what its lines may hold.
  static constexpr double kEscape = 6;

  static double Less(uint32_t count, uint32_t held) { return count > held ? count - held : 0; }
  // How likely a unit never seen in the file is this one: a letter or sign
  // of ASCII far more than anything else.
  static double Unseen(uint16_t u) {
    if (u >= 0x20 && u < 0x7F) return 0.8 / 95;
    if (u >= 0xA0 && u <= 0xFF) return 0.1 / 96;
    return 0.1 / 65000;
  }

  uint64_t total_ = 0;
  double distinctUnits_ = 0;
  GramTable tables_[kOrder + 1];
};

// How often each complete line of the streams occurs, by a hash of its
// units without CR LF.
class LineCounts {
 public:
  static constexpr size_t kLongest = 1024;   // units; longer lines are not looked at

  explicit LineCounts(const Streams& st) {
    for (const TextOrder& s : {FrontOrder(st), BackOrder(st)}) {
      const Sample sample(s.count);
      // Each line after an LF whose first unit is counted.
      for (size_t i = 1; i < s.count; ++i) {
        const size_t next = sample.NextFrom(i);
        if (next != i) {
          i = next - 1;
          continue;
        }
        if (s[i - 1] != kLF) continue;
        uint64_t hash = kSeed;
        size_t end = i;
        while (end < s.count && s[end] != kCR && end - i <= kLongest) hash = Step(hash, s[end++]);
        if (end + 1 < s.count && s[end] == kCR && s[end + 1] == kLF && end - i <= kLongest) table_.Add(hash);
      }
    }
  }

  uint32_t Count(uint64_t hash) const { return table_.Count(hash); }

  static constexpr uint64_t kSeed = 0x84222325CBF29CE4ull;
  static uint64_t Step(uint64_t hash, uint16_t u) { return (hash ^ u) * 0x100000001B3ull + (hash >> 29); }

 private:
  GramTable table_;
};

// Which windows of four units occur more than once in the file, by a hash
// of each: a bit for "seen" and a bit for "seen again". A collision can only
// make a window look repeated.
class RepeatedWindows {
 public:
  explicit RepeatedWindows(const Streams& st) {
    const size_t windows = st.FrontCount() + st.BackCount();
    int bits = 16;
    while (bits < 28 && (size_t{1} << bits) < 16 * windows) ++bits;
    shift_ = 64 - bits;
    seen_.assign((size_t{1} << bits) / 64, 0);
    again_.assign(seen_.size(), 0);
    uint64_t* seen = seen_.data();
    uint64_t* again = again_.data();
    const uint16_t* front = st.FrontUnits().data();
    const uint16_t* back = st.BackUnits().data();
    uint64_t key = 0;
    for (size_t i = 0, n = st.FrontCount(); i < n; ++i) {
      key = key << 16 | front[i];
      if (i < 3) continue;
      const uint64_t h = (key * kMix) >> shift_, bit = uint64_t{1} << (h & 63);
      if (seen[h >> 6] & bit) again[h >> 6] |= bit; else seen[h >> 6] |= bit;
    }
    key = 0;
    for (size_t n = st.BackCount(), i = n; i-- > 0;) {   // text order
      key = key << 16 | back[i];
      if (n - 1 - i < 3) continue;
      const uint64_t h = (key * kMix) >> shift_, bit = uint64_t{1} << (h & 63);
      if (seen[h >> 6] & bit) again[h >> 6] |= bit; else seen[h >> 6] |= bit;
    }
  }

  bool Repeated(uint64_t key) const {
    const uint64_t h = (key * kMix) >> shift_;
    return (again_[h >> 6] >> (h & 63)) & 1;
  }

 private:
  static constexpr uint64_t kMix = 0x9E3779B97F4A7C15ull;
  std::vector<uint64_t> seen_, again_;
  int shift_ = 48;
};

// Whether the back stream breaks at a unit: some window of four units that
// holds it occurs nowhere else in the file. Asked for units in falling
// order, as the candidate lengths fall.
class BackBreaks {
 public:
  BackBreaks(const Streams& st, const RepeatedWindows& repeated)
      : back_(st.BackUnits().data()), count_(st.BackCount()), repeated_(repeated) {}

  bool At(size_t r) {
    if (count_ < 4 || r >= count_) return true;
    // The windows that hold B(r), by the unit that ends them in text order:
    // (B(e+3), B(e+2), B(e+1), B(e)) for e from r-3 to r. Each is looked up
    // once, as r falls.
    const size_t high = std::min(r, count_ - 4), low = r >= 3 ? r - 3 : 0;
    for (size_t e = high + 1; e-- > low;) {
      if (done_ != kNone && e >= done_) continue;
      const uint64_t key = static_cast<uint64_t>(back_[e + 3]) << 48 | static_cast<uint64_t>(back_[e + 2]) << 32 |
                           static_cast<uint64_t>(back_[e + 1]) << 16 | back_[e];
      unique_[e % 4] = !repeated_.Repeated(key);
      done_ = e;
    }
    for (size_t e = low; e <= high; ++e)
      if (unique_[e % 4]) return true;
    return false;
  }

 private:
  const uint16_t* back_;
  size_t count_;
  const RepeatedWindows& repeated_;
  size_t done_ = kNone;   // the lowest end looked up so far
  bool unique_[4] = {};
};

// Windows of both streams in text order, by a 64-bit key of each: the
// twelve units across a joint, which must stand elsewhere in the file; and
// the four units on each side of the unit that would hold d[L], which must
// not: a unit that differs from its like elsewhere only there is more
// likely a changed character than the byte between two runs.
class Windows {
 public:
  static constexpr size_t kJointSide = 6;
  static constexpr size_t kUnitSide = 4;

  explicit Windows(const Streams& st) {
    for (const TextOrder& s : {FrontOrder(st), BackOrder(st)}) {
      const Sample sample(s.count);
      for (size_t i = sample.NextFrom(0); i + 2 * kJointSide <= s.count; i = sample.NextFrom(i + 1)) {
        joints_.Add(JointKey(s, i + kJointSide));
        units_.Add(UnitKey(s, i + kUnitSide));
      }
    }
  }

  // Whether the text across the joint before index at stands in the file.
  bool JointSeen(const LengthText& text, size_t at) const {
    return at >= kJointSide && at + kJointSide <= text.size() && joints_.Count(JointKey(text, at)) > 0;
  }

  // How often the units around index at, that unit left out, stand in the
  // file.
  uint32_t UnitCount(const LengthText& text, size_t at) const {
    return at >= kUnitSide && at + kUnitSide < text.size() ? units_.Count(UnitKey(text, at)) : 0;
  }

 private:
  template <class Text>
  static uint64_t JointKey(const Text& text, size_t at) {
    uint64_t key = text[at - kJointSide];
    for (size_t i = at - kJointSide + 1; i < at + kJointSide; ++i) key = Extend(key, text[i]);
    return key;
  }
  template <class Text>
  static uint64_t UnitKey(const Text& text, size_t at) {
    uint64_t key = text[at - kUnitSide];
    for (size_t i = at - kUnitSide + 1; i <= at + kUnitSide; ++i) key = Extend(key, i == at ? 0xFFFF : text[i]);
    return key;
  }

  GramTable joints_, units_;
};

// Weighs, for a shorter valid length, "this run's text of that length,
// then an older run's tail" against "the text of the longest valid length".
class Judge {
 public:
  Judge(const Streams& st, size_t top, const TextModel& model, const LineCounts& lines, const Windows& windows)
      : st_(st), top_(st, top), model_(model), lines_(lines), windows_(windows), whole_(top + 1 >= st.size()) {}

  // The evidence, in natural logarithms of odds; -infinity when the length
  // cannot be this run's end, for want of a joint in the text: the text
  // across its joint stands nowhere else in the file, its line breaks the
  // form of the engine's lines, or the unit that would hold d[L] fits where
  // it stands as well as an arbitrary byte would; or, while the whole file
  // reads as one log, that unit stands among characters beyond ASCII or
  // differs from its like elsewhere in the file only in itself.
  double Evidence(size_t length) {
    const LengthText text(st_, length);
    const Shape& s = text.shape();
    const size_t j = s.joint, bk = s.back;

    // The unit of the longest text that holds d[L]: an arbitrary byte, the
    // low one when L is a multiple of four, else the high one next to a low
    // byte of the older run's text.
    size_t at = kNone;
    uint16_t unit = 0;
    if (bk < top_.shape().back) {
      at = top_.IndexOfBack(bk);
      unit = st_.Back(bk);
    } else if (top_.shape().middle && length + 2 == top_.length()) {
      at = top_.shape().front;
      unit = st_.Middle(top_.length());
    }
    if (at == kNone || !windows_.JointSeen(text, j + 1) || (whole_ && (!PlainAround(at) || SeenAsChanged(at, bk))))
      return -INFINITY;
    double evidence = 0;
    if (!LineAcross(text, evidence)) return -INFINITY;
    HoldOut(j, bk);
    uint16_t context[kContext];

    int k = Context(top_, at, context);
    double arbitrary = 1.0 / 256;
    if (length % 4 != 0) arbitrary *= Chance(context, k, static_cast<uint16_t>(unit & 0xFF));
    const double odd = std::log(arbitrary) - std::log(Chance(context, k, unit));
    if (odd <= 0) return -INFINITY;
    evidence += odd;

    // The units after the joint: after this run's text before the joint,
    // against after their neighbours in the longest text, among them the
    // unit that holds d[L].
    for (size_t step = 1; step <= kContext && step <= bk; ++step) {
      const size_t r = bk - step;
      k = 0;
      for (size_t i = j + step >= kContext ? j + step - kContext : 0; i < j + step; ++i) context[k++] = text[i];
      evidence += std::log(Chance(context, k, st_.Back(r)));
      k = Context(top_, top_.IndexOfBack(r), context);
      evidence -= std::log(Chance(context, k, st_.Back(r)));
    }

    // The front stream after the joint: the older run's text, which often
    // goes on like this run's, against the longest text going on.
    double along = 0, fresh = 0;
    bool any = false;
    for (size_t i = j + 1; i <= j + kContext && i < top_.shape().front; ++i) {
      any = true;
      const uint16_t u = st_.Front(i);
      k = Context(top_, i, context);
      along += std::log(Chance(context, k, u));
      k = 0;
      for (size_t p = j + 1; p < i; ++p) context[k++] = st_.Front(p);
      fresh += std::log(Chance(context, k, u));
    }
    if (any) {
      const double most = std::max(along, fresh);
      evidence += most - along +
                  std::log(kSameFront * std::exp(along - most) + (1 - kSameFront) * std::exp(fresh - most));
    }
    return evidence;
  }

 private:
  static constexpr double kSameFront = 0.5;    // an older run's front goes on like this run's
  static constexpr double kLineSeen = 5.5;     // the line across the joint stands elsewhere
  static constexpr double kLineUnseen = -1.2;  // it does not
  static constexpr size_t kLineSide = 3;       // units it takes from each side, at least

  double Chance(const uint16_t* context, int k, uint16_t u) const { return model_.Chance(context, k, u, held_); }

  // Whether the three units on each side of index at of the longest text
  // are ASCII: characters beyond it come in words, and a cut character
  // leaves stray units beside each other.
  bool PlainAround(size_t at) const {
    for (size_t i = at >= 3 ? at - 3 : 0; i <= at + 3 && i < top_.size(); ++i) {
      const uint16_t u = top_[i];
      if (i != at && !(u == kCR || u == kLF || (u >= 0x20 && u < 0x7F))) return false;
    }
    return true;
  }

  // Whether the units around index at, B(bk), stand elsewhere in the file
  // with another unit in its place. The window counts itself when it lies
  // in the back stream.
  bool SeenAsChanged(size_t at, size_t bk) const {
    const bool inBack = bk >= Windows::kUnitSide && bk + Windows::kUnitSide < top_.shape().back;
    return windows_.UnitCount(top_, at) > (inBack ? 1u : 0u);
  }

  // Up to three units before index i; how many.
  static int Context(const LengthText& text, size_t i, uint16_t* out) {
    int k = 0;
    for (size_t p = i >= kContext ? i - kContext : 0; p < i; ++p) out[k++] = text[p];
    return k;
  }

  // Leaves out of the counts the windows that hold the units judged: the
  // back stream from B(bk) down to three units after it, and three front
  // units after the joint.
  void HoldOut(size_t j, size_t bk) {
    held_.Clear();
    const size_t nF = st_.FrontCount(), nB = st_.BackCount();
    if (nB > 0) {
      const size_t high = std::min(bk, nB - 1);
      const size_t low = bk >= kContext ? bk - kContext : 0;
      if (low <= high) HoldOutWindows(BackOrder(st_), nB - 1 - high, nB - 1 - low);
    }
    if (j + 1 < nF) HoldOutWindows(FrontOrder(st_), j + 1, std::min(nF - 1, j + kContext));
  }

  // Every window that holds a unit of first..last, text order.
  void HoldOutWindows(const TextOrder& s, size_t first, size_t last) {
    const Sample sample(s.count);
    for (int order = 1; order <= kOrder; ++order) {
      const size_t from = first + 1 >= static_cast<size_t>(order) ? first + 1 - order : 0;
      for (size_t start = from; start <= last && start + order <= s.count; ++start) {
        if (!sample.Holds(start)) continue;
        uint16_t units[kOrder];
        for (int i = 0; i < order; ++i) units[i] = s[start + i];
        held_.Add(order, Pack(units, order));
      }
    }
  }

  // The line of the text that holds the joint. False when it breaks the
  // form of the lines of asterisks; adds the evidence of the line as a
  // whole when it takes enough from both sides and is no line of
  // asterisks, which stand everywhere.
  bool LineAcross(const LengthText& text, double& evidence) const {
    const size_t j = text.shape().joint, n = text.size();
    if (j + 1 >= n || text[j] == kCR) return true;   // the joint splits no line
    size_t start = j + 1;
    while (start > 0 && text[start - 1] != kLF) {
      if (j + 1 - start > LineCounts::kLongest) return true;
      --start;
    }
    size_t end = j + 1;
    while (end < n && text[end] != kCR) {
      if (end - start > LineCounts::kLongest) return true;
      ++end;
    }
    if (end == n) return true;
    if (start < end && text[start] == kStar) return StarLineOk(text, start, end);
    if (j + 1 - start < kLineSide || end - (j + 1) < kLineSide) return true;
    uint64_t hash = LineCounts::kSeed;
    for (size_t i = start; i < end; ++i) hash = LineCounts::Step(hash, text[i]);
    evidence += lines_.Count(hash) > 0 ? kLineSeen : kLineUnseen;
    return true;
  }

  // A line that begins with an asterisk: 80 asterisks, one of the banner
  // titles the engine writes, or a header of the outcome text ("* ", a
  // title, " *").
  static bool StarLineOk(const LengthText& text, size_t start, size_t end) {
    size_t lead = 0;
    while (start + lead < end && text[start + lead] == kStar) ++lead;
    if (start + lead == end) return lead == kStarLine;
    if (lead > 1) {
      for (const std::string_view title : kBannerTitles) {
        if (title.size() != end - start) continue;
        size_t i = 0;
        while (i < title.size() && text[start + i] == static_cast<uint8_t>(title[i])) ++i;
        if (i == title.size()) return true;
      }
      return false;
    }
    if (end - start < 4 || text[start + 1] != kBlank || text[end - 1] != kStar || text[end - 2] != kBlank)
      return false;
    for (size_t i = start + 2; i < end - 2; ++i)
      if (text[i] == kStar) return false;
    return true;
  }

  const Streams& st_;
  const LengthText top_;
  const TextModel& model_;
  const LineCounts& lines_;
  const Windows& windows_;
  const bool whole_;   // the whole file reads as one log
  HeldOut held_;
};

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

// Writes one UTF-16 unit as UTF-8 at out; high holds a high surrogate until
// the unit after it comes. A surrogate without its partner is written as
// U+FFFD. Gives the end.
char* PutUnit(char* out, uint16_t u, uint16_t& high) {
  if (high != 0) {
    const uint16_t first = high;
    high = 0;
    if (IsLowSurrogate(u))
      return PutUtf8(out, 0x10000 + ((static_cast<uint32_t>(first) - 0xD800) << 10) + (u - 0xDC00u));
    out = PutUtf8(out, 0xFFFD);
  }
  if (IsHighSurrogate(u)) {
    high = u;
    return out;
  }
  return PutUtf8(out, IsLowSurrogate(u) ? 0xFFFD : u);
}

// The text of a length as UTF-8.
std::string TextOf(const Streams& st, size_t length) {
  const Shape s = ShapeOf(length);
  std::string text(length / 2 * 3, '\0');   // at most three bytes a unit
  char* out = text.data();
  uint16_t high = 0;
  auto put = [&](uint16_t u) {
    if (u < 0x80 && high == 0)
      *out++ = static_cast<char>(u);
    else
      out = PutUnit(out, u, high);
  };
  const uint16_t* front = st.FrontUnits().data();
  for (size_t i = 0; i < s.front; ++i) put(front[i]);
  if (s.middle) put(st.Middle(length));
  const uint16_t* back = st.BackUnits().data();
  for (size_t r = s.back; r-- > 0;) put(back[r]);
  if (high != 0) out = PutUtf8(out, 0xFFFD);
  text.resize(static_cast<size_t>(out - text.data()));
  return text;
}

// The evidence a shorter length needs to be read as this run's end, and to
// be named as a possible end, by the kind of byte d[L] is: for L a multiple
// of four a low byte, often an ordinary character; otherwise a high byte,
// mostly a character of no script in the log.
constexpr double kEndLowByte = 15, kEndHighByte = 10;
constexpr double kPossibleLowByte = 12, kPossibleHighByte = 7;
constexpr double kCandidatesFree = 1024;
constexpr size_t kMostOthers = 3;

// Where this run's text ends: the longest valid length unless a shorter one
// has the evidence of an end; and the other possible ends.
void FindEnd(const Streams& st, const Validity& validity, size_t top, DecodedDebugFile& decoded) {
  const TextModel model(st);
  const LineCounts lines(st);
  const Windows windows(st);
  const RepeatedWindows repeated(st);
  BackBreaks breaks(st, repeated);
  Judge judge(st, top, model, lines, windows);

  struct Found {
    DebugFileReading end;
    double bar;        // evidence it needs to be read as the end
    double possible;   // evidence it needs to be named
  };
  std::vector<Found> found;
  size_t candidates = 0;
  // The lengths 4bk+4 and 4bk+2 both end their text with bk back units,
  // and d[L] lies in B(bk) for both.
  for (size_t bk = ShapeOf(top - 2).back + 1; bk-- > 0;) {
    if (4 * bk + 4 < kMinLength) break;
    if (!breaks.At(bk)) continue;
    for (const size_t length : {4 * bk + 4, 4 * bk + 2}) {
      if (length >= top || length < kMinLength || !validity.Valid(length)) continue;
      ++candidates;
      const double evidence = judge.Evidence(length);
      const bool low = length % 4 == 0;
      if (evidence > (low ? kPossibleLowByte : kPossibleHighByte))
        found.push_back({{length, evidence}, low ? kEndLowByte : kEndHighByte, low ? kPossibleLowByte : kPossibleHighByte});
    }
  }
  // More candidates, more chances for a strong coincidence.
  const double raise = candidates > kCandidatesFree ? std::log(candidates / kCandidatesFree) : 0;

  // The best end; then, while a clearly shorter one is over the bar too,
  // the best of those, since every older run behind leaves a joint.
  constexpr size_t kSameEnd = 32;   // bytes
  const Found* chosen = nullptr;
  for (size_t below = top;;) {
    const Found* best = nullptr;
    for (const Found& f : found) {
      const double margin = f.end.evidence - f.bar - raise;
      if (f.end.length < below && margin > 0 && (!best || margin > best->end.evidence - best->bar - raise)) best = &f;
    }
    if (!best) break;
    chosen = best;
    below = best->end.length > kSameEnd ? best->end.length - kSameEnd : 0;
  }
  decoded.length = chosen ? chosen->end.length : top;
  decoded.evidence = chosen ? chosen->end.evidence : 0;
  for (const Found& f : found)
    if (&f != chosen && f.end.evidence > f.possible + raise) decoded.others.push_back(f.end);
  std::sort(decoded.others.begin(), decoded.others.end(),
            [](const DebugFileReading& a, const DebugFileReading& b) { return a.evidence > b.evidence; });
  if (decoded.others.size() > kMostOthers) decoded.others.resize(kMostOthers);
}

}  // namespace

bool DecodeDebugFile(const std::vector<uint8_t>& bytes, DecodedDebugFile& decoded,
                     std::string& error) {
  decoded = DecodedDebugFile{};
  if (bytes.empty()) {
    error = "the file is empty";
    return false;
  }
  const Streams st(bytes);
  const Validity validity(st);
  size_t top = st.size() - st.size() % 2;
  while (top >= kMinLength && !validity.Valid(top)) top -= 2;
  if (top < kMinLength) {
    error = "the file holds no debug log";
    return false;
  }
  decoded.longest = top;
  FindEnd(st, validity, top, decoded);
  decoded.text = TextOf(st, decoded.length);
  decoded.droppedBytes = st.size() - decoded.length;
  return true;
}

std::string DebugFileText(const std::vector<uint8_t>& bytes, size_t length) {
  if (length > bytes.size()) length = bytes.size();
  length -= length % 2;
  if (length == 0) return {};
  return TextOf(Streams(bytes), length);
}
