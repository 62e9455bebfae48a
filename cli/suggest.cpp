#include "cli/suggest.h"
#include "common/shared/format_text.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

namespace zel::ctl {

namespace {

/// How many letters have to be changed, added, dropped or swapped with their neighbour.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> beforeLast;
  std::vector<std::size_t> last(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::vector<std::size_t> row(b.size() + 1, i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t change = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, change});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    beforeLast = std::exchange(last, std::move(row));
  }
  return last.back();
}

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

Words nearest(const std::string& mixedCase, const Words& candidates) {
  const std::string typed = lowerCase(mixedCase);
  const std::size_t limit = std::max<std::size_t>(1, typed.size() / 3);
  std::vector<std::pair<std::size_t, std::string>> found;
  for (const std::string& candidate : candidates) {
    const std::string lower = lowerCase(candidate);
    const bool isPart = typed.size() >= 3 && typed != lower && lower.find(typed) != std::string::npos;
    const bool isFar = candidate.size() > typed.size() + limit || typed.size() > candidate.size() + limit;
    if (isFar && !isPart) continue;
    const std::size_t howFar = isPart ? limit : distance(typed, lower);
    if (howFar <= limit) found.emplace_back(howFar, candidate);
  }
  std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  Words words;
  for (const auto& [howFar, candidate] : found) {
    if (howFar == found.front().first) words.push_back(candidate);
  }
  constexpr std::size_t kTooMany = 4;  // to be a guess
  return words.size() < kTooMany ? words : Words();
}

std::string didYouMean(const std::string& typed, const Words& candidates) {
  const Words near = nearest(typed, candidates);
  return near.empty() ? "" : "did you mean '" + listed(near, "' or '") + "'?";
}

}  // namespace zel::ctl
