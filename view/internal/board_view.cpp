#include "view/board_view.h"

#include <algorithm>
#include <exception>
#include <map>

#include "view/internal/follower.h"

namespace zel {

namespace {

/// The JSON form of an entry, to compare it with another.
Json::Value formOf(const IJsonSerializable* record) {
  Json::Value form;
  if (record != nullptr) record->Serialize(form);
  return form;
}

template <class List, class Predicate>
const typename List::value_type* find(const List& list, Predicate predicate) {
  const auto found = std::find_if(list.begin(), list.end(), predicate);
  return found == list.end() ? nullptr : &*found;
}

/// The first entry of each address.
std::map<std::uint32_t, const WhiteListEntry*> byAddress(const std::list<WhiteListEntry>& entries) {
  std::map<std::uint32_t, const WhiteListEntry*> found;
  for (const WhiteListEntry& entry : entries) found.emplace(entry.ip, &entry);
  return found;
}

}  // namespace

// NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its memory is recycled
BoardView::BoardView(zmq::context_t& context, const std::string& requests, const std::string& notifications)
    : follower_(new Follower(context, requests, notifications)) {}

BoardView::~BoardView() { follower_->destroy(); }

int BoardView::open() { return follower_->start(); }
int BoardView::descriptor() const { return follower_->wakeUpDescriptor(); }
std::size_t BoardView::process() { return follower_->process(); }

void BoardView::setProbe(std::chrono::milliseconds interval, std::chrono::milliseconds timeout) {
  follower_->setProbe(interval, timeout);
}

BoardView::State BoardView::state() const { return follower_->state(); }
std::uint64_t BoardView::generation() const { return follower_->generation(); }
const BoardView::Counters& BoardView::counters() const { return follower_->counters(); }
bool BoardView::isUnreadable(Document document) const { return follower_->known(document).unreadable; }

std::optional<BoardView::Clock::time_point> BoardView::confirmedAt(Document document) const {
  return follower_->known(document).confirmedAt;
}

BoardRecords BoardView::records() const { return follower_->records(); }
const SysParameters& BoardView::stored() const { return *follower_->records().stored; }
const SysParametersDynamic& BoardView::dynamic() const { return *follower_->records().dynamic; }
const BoardModel& BoardView::boardModel() const { return *follower_->records().boardModel; }
const std::list<WhiteListEntry>& BoardView::whitelist() const { return *follower_->records().whitelist; }
const Json::Value& BoardView::document(Document document) const { return follower_->known(document).told; }

bool BoardView::isTold(const SettingRow& row) const {
  const Json::Value* value = &document(Document::kStored);
  const std::string path = row.path;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    if (!value->isObject()) return false;
    value = value->find(path.data() + begin, path.data() + end);
    if (value == nullptr) return false;
    begin = end + 1;
  }
  const bool isBlock = row.kind == SettingRow::Kind::kBlock || row.kind == SettingRow::Kind::kInterfaceList;
  return !isBlock || !value->empty();
}

BoardView::Listener BoardView::onState(std::function<void(State before, State now)> callback) {
  return follower_->add(&Follower::Listeners::state, std::move(callback));
}

BoardView::Listener BoardView::onChange(std::function<void(const BoardChange& change)> callback) {
  return follower_->add(&Follower::Listeners::change, std::move(callback));
}

BoardView::Listener BoardView::onInterfaceChange(
    const std::string& name, std::function<void(const EthBasicInfo* before, const EthBasicInfo* now)> callback) {
  return onChange([name, callback = std::move(callback)](const BoardChange& change) {
    if (change.document != Document::kDynamic) return;
    const auto isNamed = [&name](const EthBasicInfo& interface) { return interface.name == name; };
    const EthBasicInfo* const before = find(change.before.dynamic->ethBasics, isNamed);
    const EthBasicInfo* const now = find(change.now.dynamic->ethBasics, isNamed);
    if (formOf(before) != formOf(now)) callback(before, now);
  });
}

BoardView::Listener BoardView::onWhitelistChange(
    std::function<void(const WhiteListEntry* before, const WhiteListEntry* now)> callback) {
  return onChange([callback = std::move(callback)](const BoardChange& change) {
    if (change.document != Document::kWhitelist) return;
    const std::map entriesBefore = byAddress(*change.before.whitelist);
    const std::map entriesNow = byAddress(*change.now.whitelist);
    std::exception_ptr thrown;  // the first; the callback is called for the other entries all the same
    const auto tell = [&](const WhiteListEntry* before, const WhiteListEntry* now) {
      try {
        callback(before, now);
      } catch (...) {
        if (!thrown) thrown = std::current_exception();
      }
    };
    for (const WhiteListEntry& before : *change.before.whitelist) {
      const auto found = entriesNow.find(before.ip);
      const WhiteListEntry* const now = found == entriesNow.end() ? nullptr : found->second;
      if (formOf(&before) != formOf(now)) tell(&before, now);
    }
    for (const WhiteListEntry& now : *change.now.whitelist) {
      if (entriesBefore.count(now.ip) == 0) tell(nullptr, &now);
    }
    if (thrown) std::rethrow_exception(thrown);
  });
}

BoardView::Listener BoardView::onResynchronised(std::function<void()> callback) {
  return follower_->add(&Follower::Listeners::resynchronised, std::move(callback));
}

BoardView::Listener BoardView::onRebootRequest(std::function<void()> callback) {
  return follower_->add(&Follower::Listeners::rebootRequest, std::move(callback));
}

BoardView::Listener BoardView::onWrongType(std::function<void(Document document, const std::string& text)> callback) {
  return follower_->add(&Follower::Listeners::wrongType, std::move(callback));
}

bool BoardView::remove(Listener listener) { return follower_->remove(listener); }

AsyncClient::Id BoardView::change(const Request<void>& request, Document document, Written completion,
                                  std::chrono::milliseconds timeout) {
  return follower_->change(request, document, {}, std::move(completion), timeout);
}

AsyncClient::Id BoardView::change(const Request<void>& request, Document document, Holds holds, Written completion,
                                  std::chrono::milliseconds timeout) {
  return follower_->change(request, document, std::move(holds), std::move(completion), timeout);
}

bool BoardView::cancel(AsyncClient::Id id) { return follower_->cancel(id); }

}  // namespace zel
