#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "dispatch/callback.h"
#include "dispatch/query.h"
#include "link/iconnection.h"
#include "services/facade.h"
#include "services/itroubleshootingservice.h"
#include "services/service.h"

namespace obd {

using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\troubleshootingservice";

// Any text for the adapter, with its answer.
class ConsoleQuery : public IQuery {
 public:
  ConsoleQuery(const std::string& request, int timeout) : m_request(request), m_timeout(timeout) {}

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override {
    const auto timeout = static_cast<unsigned int>(std::max(m_timeout, 0));
    return proxy->sendCommand(m_request, m_response, timeout) > RequestAnswered ? NoData : Updated;
  }
  void clear() override { m_response.clear(); }

  const std::string& response() const { return m_response; }

 private:
  const std::string m_request;
  const int m_timeout;
  std::string m_response;
};

std::shared_ptr<DataEntryDescriptor> makeEntry(const char* direction,
                                               const std::vector<unsigned char>& bytes) {
  constexpr std::string_view Hidden("\0\n\r>", 4);
  std::string text(bytes.begin(), bytes.end());
  std::erase_if(text, [&](char character) { return Hidden.find(character) != std::string_view::npos; });
  return std::make_shared<DataEntryDescriptor>(hostos::CDateTime::currentDateTime().toString(), direction,
                                               text);
}

class TroubleshootingService final : public Service<ITroubleshootingService, ITroubleshootingServiceObserver>,
                                     public IConnectionLogger,
                                     public std::enable_shared_from_this<TroubleshootingService> {
 public:
  explicit TroubleshootingService(const std::shared_ptr<FacadeParts>& parts) : Service(parts) {
    parts->connectionManager->addLogger(this);
  }
  // First of all: afterwards no connection's thread is in here, and none comes any more.
  ~TroubleshootingService() override { facade().connectionManager->removeLogger(this); }

  void sendRequest(const std::string& request, int timeout) override;

  // On the connection's threads.
  void onWrite(const std::vector<unsigned char>& bytes) override { log(">>", bytes); }
  void onRead(const std::vector<unsigned char>& bytes) override { log("<<", bytes); }

 protected:
  void onConnected() override {}
  void onDisconnected() override {
    m_queries.clear();
    showLines();  // what a full queue has kept back
  }
  void onEcuChanged() override {}

 private:
  using Entry = std::shared_ptr<DataEntryDescriptor>;

  void log(const char* direction, const std::vector<unsigned char>& bytes);
  void showLines();
  void onResponse(bool success, const std::string& request, const std::shared_ptr<ConsoleQuery>& subject);

  std::vector<std::unique_ptr<Query<ConsoleQuery>>> m_queries;  // on their way

  // Lines travel together, so that traffic takes no more than one entry of the queue to the front end.
  std::mutex m_linesMutex;
  std::vector<Entry> m_lines;
  bool m_linesScheduled = false;
  const std::shared_ptr<Callback> m_linesCallback = std::make_shared<Callback>();
};

void TroubleshootingService::log(const char* direction, const std::vector<unsigned char>& bytes) {
  {
    const std::lock_guard guard(m_linesMutex);
    m_lines.push_back(makeEntry(direction, bytes));
    if (std::exchange(m_linesScheduled, true)) {
      return;
    }
  }
  // The function dies with its callback, which this object owns. With the queue full the next line tries
  // again.
  if (!m_linesCallback->schedule([this] { showLines(); })) {
    const std::lock_guard guard(m_linesMutex);
    m_linesScheduled = false;
  }
}

void TroubleshootingService::showLines() {
  const std::shared_ptr<TroubleshootingService> self = weak_from_this().lock();  // an observer may drop it
  std::vector<Entry> lines;
  {
    const std::lock_guard guard(m_linesMutex);
    m_linesScheduled = false;
    lines.swap(m_lines);
  }
  for (const Entry& entry : lines) {
    fireEvent(&ITroubleshootingServiceObserver::onLogEntryAdded, entry);
  }
}

void TroubleshootingService::sendRequest(const std::string& request, int timeout) {
  if (!isConnected()) {
    return;
  }
  auto query = std::make_unique<Query<ConsoleQuery>>(std::make_shared<ConsoleQuery>(request, timeout));
  // The query, and with it the callback, goes with this object.
  if (query->dispatch([this, request](bool success, const std::shared_ptr<ConsoleQuery>& subject) {
        onResponse(success, request, subject);
      })) {
    m_queries.push_back(std::move(query));
  }
}

void TroubleshootingService::onResponse(bool success, const std::string& request,
                                        const std::shared_ptr<ConsoleQuery>& subject) {
  if (!success) {
    LogStream(Source, __LINE__, 2) << "Failed to query request: " << request;
  }
  // A console may be open for hours. The caller still holds what it has called.
  std::erase_if(m_queries, [&](const auto& query) { return query->subject() == subject; });
  fireEvent(&ITroubleshootingServiceObserver::onResponseArrived, success, subject->response());
}

}  // namespace

std::shared_ptr<ITroubleshootingService> TroubleshootingServiceBuilder::createTroubleshootingService() {
  return makeService<TroubleshootingService>();
}

}  // namespace obd
