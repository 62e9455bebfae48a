#pragma once

#include <gmock/gmock.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "tests/support/json_of.h"
#include "tests/support/scripted_daemon.h"

namespace zel::test {

/// A daemon with one board: answers the queries with documents, and publishes what it is told to.
///
/// Threads: every operation but `publisher` may be called from any thread.
class FakeBoard {
 public:
  FakeBoard() {
    daemon.onRequest([this](const Request& request) { return std::vector<Answer>{answerTo(request)}; });
  }

  // The answers to the queries, by their command ids.
  static constexpr const char* kStored = "0";
  static constexpr const char* kDynamic = "1";
  static constexpr const char* kBoardModel = "3";
  static constexpr const char* kWhitelist = "16";

  void set(const std::string& id, const std::string& document) {
    const std::lock_guard<std::mutex> lock(mutex_);
    documents_[id] = json(document);
  }
  /// Refuses a query from now on; 0 answers it again.
  void refuse(const std::string& id, int status) {
    const std::lock_guard<std::mutex> lock(mutex_);
    statuses_[id] = status;
  }

  /// The ids of all requests so far.
  std::vector<std::string> asked() const {
    std::vector<std::string> ids;
    for (const Request& request : daemon.requests()) ids.push_back(request.id);
    return ids;
  }

 protected:
  // An array, which needs no destructor: some tests have their board answer while the process ends.
  static constexpr std::pair<const char*, const char*> kMembers[] = {
      {kStored, "stored"}, {kDynamic, "dynamic"}, {kBoardModel, "board-model"}, {kWhitelist, "white-list"}};

  Answer answerTo(const Request& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Json::Value answer(Json::objectValue);
    if (const auto status = statuses_.find(request.id); status != statuses_.end()) answer["status"] = status->second;
    for (const auto& [id, member] : kMembers) {
      const auto document = documents_.find(request.id);
      if (request.id == id && document != documents_.end()) answer[member] = document->second;
    }
    return answer;
  }

  std::mutex mutex_;
  std::map<std::string, Json::Value> documents_;
  std::map<std::string, int> statuses_;

 public:
  PublisherFake publisher;
  ScriptedDaemon daemon;  ///< the last member: its thread, which uses the others, ends before they do
};

}  // namespace zel::test
