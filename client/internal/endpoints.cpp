#include "client/endpoints.h"

#include "common/shared/no_destructor.h"
#include "common/shared/process_mutex.h"

namespace zel {

namespace {

constexpr const char* kRequests = "tcp://127.0.0.1:5556";
constexpr const char* kNotifications = "tcp://127.0.0.1:5575";

/// What the program has said; empty: the fixed endpoint. Guarded by `processMutex`.
struct Endpoints {
  std::string requests;
  std::string notifications;
};

Endpoints& said() {
  static NoDestructor<Endpoints> endpoints;
  return *endpoints;
}

/// Makes them when the library is loaded, before threads may fork while one of them makes them.
[[maybe_unused]] const Endpoints& saidAtLoad = said();

std::string orFixed(const std::string& endpoint, const char* fixed) { return endpoint.empty() ? fixed : endpoint; }

}  // namespace

void useEndpoints(const std::string& requests, const std::string& notifications) {
  Endpoints next{requests, notifications};
  const ProcessLock lock(processMutex());
  std::swap(said(), next);
}

std::string requestEndpoint() {
  const ProcessLock lock(processMutex());
  return orFixed(said().requests, kRequests);
}

std::string notificationEndpoint() {
  const ProcessLock lock(processMutex());
  return orFixed(said().notifications, kNotifications);
}

}  // namespace zel
