#pragma once

#include <string>
#include <vector>

namespace zel::ctl {

using Words = std::vector<std::string>;

/// A word that may be typed, with its meaning, which may be empty.
struct Offer {
  std::string word;
  std::string meaning = {};
};
using Offers = std::vector<Offer>;
Offers offersOf(const Words& words);
Words wordsOf(const Offers& offers);

/// The candidates that a mistyped word may have meant, all of them equally likely; none when there are too many.
Words nearest(const std::string& typed, const Words& candidates);

/// "did you mean 'a' or 'b'?" over `nearest`; empty when there is none.
std::string didYouMean(const std::string& typed, const Words& candidates);

}  // namespace zel::ctl
