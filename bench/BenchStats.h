// Figures of repeated measurements: minimum, median and maximum.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

class Figures {
 public:
  void Add(double value) { values_.push_back(value); }
  double Last() const { return values_.empty() ? 0 : values_.back(); }
  double Min() const { return Sorted().front(); }
  double Max() const { return Sorted().back(); }
  // The middle value; of an even count, the mean of the two middle ones.
  double Median() const {
    const std::vector<double> s = Sorted();
    const size_t n = s.size();
    return n % 2 ? s[n / 2] : (s[n / 2 - 1] + s[n / 2]) / 2;
  }
  // "min / median / max"
  std::string Text() const {
    if (values_.empty()) return "-";
    char text[96];
    std::snprintf(text, sizeof text, "%.2f / %.2f / %.2f", Min(), Median(), Max());
    return text;
  }

 private:
  std::vector<double> Sorted() const {
    std::vector<double> s = values_.empty() ? std::vector<double>{0} : values_;
    std::sort(s.begin(), s.end());
    return s;
  }
  std::vector<double> values_;
};

}  // namespace bench
