#pragma once

#include <memory>
#include <string>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

namespace obd {

/// One line of the traffic with the adapter.
class VELMARA_EXPORT DataEntryDescriptor {
 public:
  DataEntryDescriptor() = default;
  DataEntryDescriptor(const std::string& timestamp, const std::string& direction, const std::string& data)
      : m_timestamp(timestamp), m_direction(direction), m_data(data) {}

  /// Local wall clock as text.
  const std::string& timestamp() const { return m_timestamp; }
  /// ">>" for what was written, "<<" for what was read.
  const std::string& direction() const { return m_direction; }
  /// Without line ends and the adapter's prompt.
  const std::string& data() const { return m_data; }

 private:
  std::string m_timestamp;
  std::string m_direction;
  std::string m_data;
};

/// Hears of the console on the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ITroubleshootingServiceObserver {
 public:
  virtual ~ITroubleshootingServiceObserver() = default;
  /// The answer as the dialogue with the adapter gives it; nothing is taken out of it here.
  virtual void onResponseArrived(bool /*success*/, const std::string& /*response*/) {}
  /// Every line, in the order in which they travelled.
  virtual void onLogEntryAdded(const std::shared_ptr<DataEntryDescriptor>& /*entry*/) {}
};

/// A raw console to the adapter, and the log of all traffic. No call waits for the vehicle. For the thread
/// that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ITroubleshootingService
    : public virtual tavrix::INotifier<ITroubleshootingServiceObserver> {
 public:
  virtual bool isConnected() = 0;
  /// Sends any text to the adapter, behind all queries that wait already. Ends in `onResponseArrived`, unless
  /// the connection goes first or the queue is full. `timeout` is in milliseconds.
  virtual void sendRequest(const std::string& request, int timeout) = 0;
};

namespace TroubleshootingServiceBuilder {
/// Null if there is no facade.
VELMARA_EXPORT std::shared_ptr<ITroubleshootingService> createTroubleshootingService();
}  // namespace TroubleshootingServiceBuilder

}  // namespace obd
