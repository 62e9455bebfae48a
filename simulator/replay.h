#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/board.h"

namespace zel::sim {

class Simulator;

/// One line of a recording that 'sysmgrctl record' made.
struct RecordedEvent {
  enum class Kind { kDocument, kMissingDocument, kNotification, kConnectionBegins, kConnectionEnds };

  Kind kind = Kind::kDocument;
  std::chrono::milliseconds at{0};  ///< since the start of the recording
  std::string document;             ///< its name: "stored"
  Json::Value value;                ///< of the document
  std::vector<std::string> frames;  ///< of the notification

  /// @return empty, or why the line is not an event
  static std::string parse(std::string_view line, RecordedEvent& event);
  /// Reads the first line of a recording. @return empty, or why it is not one
  static std::string parseHead(std::string_view line);
};

/// A recording in place of a board: the documents as they were, the notifications at their times. A notification
/// changes the document that it is about. Requests for other documents and all that change something are refused.
///
/// The recording's time begins with the first request, so that no event passes before an application is there.
/// Threads: one caller at a time.
class Replay {
 public:
  /// @param speed  how many times faster than it was recorded
  explicit Replay(double speed = 1) : speed_(speed) {}

  /// Looks at the recording as a whole, and takes the documents of its beginning.
  /// @param cut  empty, or where the recording breaks off; the replay ends there
  /// @return empty, or what is wrong with which line
  std::string open(const std::string& path, std::string& cut);

  /// Answers a request.
  Outcome handle(unsigned int id, const Json::Value& body) const;
  /// The notification of the topic that shows the present document; none where the recording holds no document.
  std::optional<Notification> current(SysmgrPublisher::sysmgr_notifications_t topic) const;

  /// The next event, unless the recording is over.
  const std::optional<RecordedEvent>& next() const { return next_; }
  /// Takes the documents of the next event, and goes on to the one after it.
  void step();

  /// Begins with the first request that the simulator answers. The replay has to live as long as the simulator runs.
  void start(Simulator& simulator);

 private:
  using Clock = std::chrono::steady_clock;

  std::string check(std::string& cut);
  bool readNext(std::string& line);
  void takeNext();
  void goOn(Simulator& simulator);
  void show(const RecordedEvent& event, Simulator& simulator);

  double speed_;
  std::string path_;
  std::ifstream file_;
  std::uint64_t linesLeft_ = 0;
  std::optional<RecordedEvent> next_;
  std::map<std::string, Json::Value> documents_;  ///< by name
  std::optional<Clock::time_point> start_;
  std::chrono::milliseconds zero_{0};  ///< of the last document of the beginning: there the time begins
};

}  // namespace zel::sim
