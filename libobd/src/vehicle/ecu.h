#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/iecu.h"
#include "core/iobdproxy.h"
#include "core/iquery.h"
#include "powertrain/parameteridentifier.h"

namespace obd {

class SupportedOids;

/// A control unit that has answered. `init` interrogates it once, on the thread that opens the connection;
/// what it learns may be read from any thread. No lock is held while the vehicle is asked.
class Ecu : public IEcu {
 public:
  /// `id` as in the proxy's replies. The proxy owns its control units; they ask through it as long as it
  /// lives.
  Ecu(unsigned int id, ObdProtocol protocol, const std::string& protocolDescription,
      const std::shared_ptr<IObdProxy>& proxy);

  /// Asks the unit what it supports and what it is; `index` counts the units from 0. False if it did not even
  /// tell its first PIDs. A link lost on the way ends the interrogation with what was learned so far.
  bool init(unsigned int index);

  unsigned int id() const override { return m_id; }
  bool detectFreezeFrameConfiguration(unsigned char frame) override;
  void resetFreezeFrameConfiguration() override;
  std::vector<unsigned char> supportedIds(ObdMode mode, unsigned char frame) const override;
  bool isSupported(OxygenSensorLocation location, unsigned char tid) const override;
  bool isSupported(ObdMode mode, unsigned char id, unsigned char frame) const override;
  std::vector<unsigned char> supportedTids(OxygenSensorLocation location) const override;
  ObdProtocol protocol() const override { return m_protocol; }
  std::string protocolDescription() const override { return m_protocolDescription; }
  ObdStandard standard() const override { return guarded(m_standard); }
  std::string standardDescription() const override { return guarded(m_standardDescription); }
  std::string name() const override { return guarded(m_name); }
  std::string description() const override { return guarded(m_description); }
  OxygenSensorBank oxygenSensorBanks() const override;
  std::vector<OxygenSensorLocation> oxygenSensorLocations() const override {
    return guarded(m_oxygenSensorLocations);
  }
  unsigned int equivalenceRatioMax() const override { return guarded(m_limits).equivalenceRatio; }
  unsigned int oxygenSensorVoltageMax() const override { return guarded(m_limits).oxygenSensorVoltage; }
  unsigned int oxygenSensorCurrentMax() const override { return guarded(m_limits).oxygenSensorCurrent; }
  unsigned int intakeManifoldAbsolutePressureMax() const override {
    return guarded(m_limits).intakeManifoldAbsolutePressure;
  }
  float airFlowRateMax() const override { return guarded(m_limits).airFlowRate; }
  IgnitionType ignitionType() const override { return guarded(m_ignitionType); }
  bool hasToldIgnitionType() const override { return guarded(m_ignitionTypeTold); }

 private:
  using IdList = std::vector<unsigned char>;

  /// What PIDs 0x4F and 0x50 set.
  struct Limits {
    unsigned int equivalenceRatio = 2;
    unsigned int oxygenSensorVoltage = 8;
    unsigned int oxygenSensorCurrent = 128;
    unsigned int intakeManifoldAbsolutePressure = 255;
    float airFlowRate = 655.35F;
  };

  template <typename T>
  T guarded(const T& member) const {
    const std::lock_guard guard(m_mutex);
    return member;
  }

  bool isConnected() const;
  bool ask(IQuery& query) const;
  bool offers(ParameterIdentifier pid) const { return isSupported(ObdMode::Mode01, pid.toOid(), 0); }

  bool detectConfiguration(ObdMode mode, unsigned char frame);
  template <typename Configuration, typename Take>
  void detectTesterConfiguration(int number, const Take& take);
  void detectLimits();
  void detectIgnitionAndFuelType();
  void detectStandard();
  void detectOxygenSensors();
  void detectMode05Configuration();
  void detectTestIdentifiers(OxygenSensorLocation location);
  void detectEcuName(unsigned int index);

  std::shared_ptr<IdList> getOids(ObdMode mode, unsigned char frame) const;
  std::unique_ptr<SupportedOids> getOidParameter(ObdMode mode, unsigned char oid, unsigned char frame) const;

  const unsigned int m_id;
  const ObdProtocol m_protocol;
  const std::string m_protocolDescription;
  const std::weak_ptr<IObdProxy> m_proxy;  // weak, since the proxy holds its control units

  mutable std::mutex m_mutex;  // guards all that follows, the contents of the lists included
  std::map<std::pair<ObdMode, unsigned char>, std::shared_ptr<IdList>> m_ids;  // by service and freeze frame
  std::map<OxygenSensorLocation, IdList> m_mode05Tids;
  ObdStandard m_standard = ObdStandard::Unknown;
  std::string m_standardDescription;
  std::string m_name;
  std::string m_description;
  std::vector<OxygenSensorLocation> m_oxygenSensorLocations;
  IgnitionType m_ignitionType = IgnitionType::SparkIgnition;
  bool m_ignitionTypeTold = false;
  Limits m_limits;
};

}  // namespace obd
