#include "cli/words.h"

#include <algorithm>

namespace zel::ctl {

Offers offersOf(const Words& words) {
  Offers offers;
  for (const std::string& word : words) offers.push_back({word});
  return offers;
}

Words wordsOf(const Offers& offers) {
  Words words;
  for (const Offer& offer : offers) words.push_back(offer.word);
  return words;
}

bool contains(const Words& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace zel::ctl
