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

bool contains(const Words& words, const std::string& word);

}  // namespace zel::ctl
