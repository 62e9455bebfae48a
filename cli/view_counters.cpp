#include "cli/view_counters.h"

#include <cstdint>
#include <iterator>

#include "cli/words.h"
#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

using Counters = BoardView::Counters;

struct Row {
  const char* name;
  std::uint64_t Counters::*member;
};

constexpr Row kRows[] = {
    {"notifications", &Counters::notifications},
    {"superseded", &Counters::superseded},
    {"malformed", &Counters::malformed},
    {"unknown-topics", &Counters::unknownTopics},
    {"wrong-types", &Counters::wrongTypes},
    {"changes", &Counters::changes},
    {"missed", &Counters::missed},
    {"losses", &Counters::losses},
    {"overflows", &Counters::overflows},
    {"reconnections", &Counters::reconnections},
    {"resynchronisations", &Counters::resynchronisations},
    {"probes-without-answer", &Counters::probesWithoutAnswer},
    {"requests-done", &Counters::requestsDone},
    {"requests-refused", &Counters::requestsRefused},
    {"requests-not-sent", &Counters::requestsNotSent},
    {"requests-without-answer", &Counters::requestsWithoutAnswer},
    {"answers-unusable", &Counters::answersUnusable},
};
static_assert(std::size(kRows) * sizeof(std::uint64_t) == sizeof(Counters), "each counter has a row");

}  // namespace

Json::Value documentOf(const BoardView::Counters& counters) {
  Json::Value document;
  for (const Row& row : kRows) document[row.name] = Json::UInt64(counters.*row.member);
  return document;
}

std::string textOf(const BoardView::Counters& counters) {
  Words texts;
  for (const Row& row : kRows) {
    if (counters.*row.member > 0) texts.push_back(std::string(row.name) + " " + std::to_string(counters.*row.member));
  }
  return texts.empty() ? "nothing yet" : listed(texts);
}

}  // namespace zel::ctl
