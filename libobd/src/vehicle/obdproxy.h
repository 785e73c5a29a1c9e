#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/iobdproxy.h"
#include "vehicle/fairmutex.h"

namespace obd {

class Ecu;

/// Serializes all access to the adapter and holds the control units. What talks to the adapter waits for the
/// exchange in progress, and so does `setDevice`; all else is answered at once. Always made by
/// `ObdProxyBuilder`, in a shared handle.
class ObdProxy : public IObdProxy, public std::enable_shared_from_this<ObdProxy> {
 public:
  void setDevice(IDevice* device) override;
  bool initialize() override;
  bool isConnected() override;
  ObdProtocol obdProtocol() override;
  std::vector<std::shared_ptr<IEcu>> ecus() override;
  std::shared_ptr<IEcu> currentEcu() override;
  std::shared_ptr<IEcu> ecu(unsigned int id) override;
  int sendCommand(const std::string& command, std::string& reply, unsigned int timeout) override;
  int sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                  unsigned int timeout) override;
  float batteryVoltage() override;

 private:
  std::vector<std::shared_ptr<Ecu>> detectEcus();
  bool hasDevice() const;
  void setEcus(std::vector<std::shared_ptr<IEcu>> ecus);

  FairMutex m_deviceLock;       // held for a whole exchange; the only guard on the adapter's dialogue
  std::mutex m_deviceMutex;     // guards the pointer, for moments; taken after the lock where both are
  IDevice* m_device = nullptr;  // not owned; null between connections
  std::mutex m_ecuMutex;        // guards `m_ecus`; nothing is called while it is held
  std::vector<std::shared_ptr<IEcu>> m_ecus;  // in ascending order of identifier
};

}  // namespace obd
