#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/iobdproxy.h"

namespace obd {

/// Stands before a proxy and remembers what came for single PIDs of service 01, so that calculated values
/// need not ask the vehicle again: each reader gets a reply once, and whatever it asks for beyond goes
/// through.
///
/// For the worker, during one run.
class SharedReplies final : public IObdProxy {
 public:
  /// `ecuId` is the control unit whose values are wanted.
  SharedReplies(std::shared_ptr<IObdProxy> proxy, unsigned int ecuId)
      : m_proxy(std::move(proxy)), m_ecuId(ecuId) {}

  /// Puts in the reply of a control unit to a request for one PID.
  void put(unsigned char pid, unsigned int ecuId, const std::vector<unsigned char>& reply) {
    m_replies[pid].insert_or_assign(static_cast<int>(ecuId), reply);
  }
  /// What a control unit replied; null if it did not.
  const std::vector<unsigned char>* find(unsigned char pid, unsigned int ecuId) const;

  /// Another reader begins, for whom all replies are fresh.
  void beginReader() { m_asked.clear(); }
  /// The PIDs that this reader has asked for.
  const std::set<unsigned char>& asked() const { return m_asked; }

  int sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                  unsigned int timeout) override;

  void setDevice(IDevice* device) override { m_proxy->setDevice(device); }
  bool initialize() override { return m_proxy->initialize(); }
  bool isConnected() override { return m_proxy->isConnected(); }
  ObdProtocol obdProtocol() override { return m_proxy->obdProtocol(); }
  std::vector<std::shared_ptr<IEcu>> ecus() override { return m_proxy->ecus(); }
  std::shared_ptr<IEcu> currentEcu() override { return m_proxy->currentEcu(); }
  std::shared_ptr<IEcu> ecu(unsigned int id) override { return m_proxy->ecu(id); }
  int sendCommand(const std::string& command, std::string& reply, unsigned int timeout) override {
    return m_proxy->sendCommand(command, reply, timeout);
  }
  float batteryVoltage() override { return m_proxy->batteryVoltage(); }

 private:
  const std::shared_ptr<IObdProxy> m_proxy;
  const unsigned int m_ecuId;
  std::map<unsigned char, ResponseMap> m_replies;  // by PID
  std::set<unsigned char> m_asked;
};

}  // namespace obd
