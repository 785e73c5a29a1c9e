#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "dispatch/callback.h"
#include "dispatch/query.h"
#include "link/iconnection.h"
#include "services/baseservice.h"
#include "services/facade.h"
#include "services/itroubleshootingservice.h"

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

class TroubleshootingService final : public ITroubleshootingService,
                                     public IConnectionLogger,
                                     public BaseService,
                                     public tavrix::Notifier<ITroubleshootingServiceObserver> {
 public:
  explicit TroubleshootingService(IObdVelmara& facade) : BaseService(facade) { attachConnectionLogger(this); }
  // First of all: afterwards no connection's thread is in here, and none comes any more.
  ~TroubleshootingService() override { detachConnectionLogger(this); }

  bool isConnected() override { return BaseService::isConnected(); }
  void sendRequest(const std::string& request, int timeout) override;

  // On the connection's threads.
  void onWrite(const std::vector<unsigned char>& bytes) override { log(*m_writeCallback, ">>", bytes); }
  void onRead(const std::vector<unsigned char>& bytes) override { log(*m_readCallback, "<<", bytes); }

 protected:
  void onConnected() override {}
  void onDisconnected() override { m_queries.clear(); }
  void onEcuChanged() override {}

 private:
  // The function dies with its callback, which this object owns.
  void log(Callback& callback, const char* direction, const std::vector<unsigned char>& bytes) {
    callback.schedule([this, entry = makeEntry(direction, bytes)] {
      fireEvent(&ITroubleshootingServiceObserver::onLogEntryAdded, entry);
    });
  }

  void onResponse(bool success, const std::string& request, const std::shared_ptr<ConsoleQuery>& subject);

  std::vector<std::unique_ptr<Query<ConsoleQuery>>> m_queries;  // on their way
  const std::shared_ptr<Callback> m_writeCallback = std::make_shared<Callback>();
  const std::shared_ptr<Callback> m_readCallback = std::make_shared<Callback>();
};

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
