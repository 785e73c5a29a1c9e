#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/iecu.h"
#include "core/iobdproxy.h"
#include "core/iquery.h"

namespace obd {

class OxygenSensorsPresent;
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
  ObdStandard standard() const override;
  std::string standardDescription() const override;
  std::string name() const override;
  std::string description() const override;
  OxygenSensorBank oxygenSensorBanks() const override;
  std::vector<OxygenSensorLocation> oxygenSensorLocations() const override;
  unsigned int equivalenceRatioMax() const override;
  unsigned int oxygenSensorVoltageMax() const override;
  unsigned int oxygenSensorCurrentMax() const override;
  unsigned int intakeManifoldAbsolutePressureMax() const override;
  float airFlowRateMax() const override;
  IgnitionType ignitionType() const override;
  bool hasToldIgnitionType() const override;

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

  bool isConnected() const;
  bool ask(IQuery& query) const;

  bool detectConfiguration(ObdMode mode, unsigned char frame);
  bool detectTesterConfiguration1();
  bool detectTesterConfiguration2();
  bool detectIgnitionAndFuelType();
  bool detectStandard();
  bool detectOxygenSensors();
  bool updateEcuOxygenSensorLocations(OxygenSensorsPresent& parameter);
  bool detectMode05Configuration();
  bool detectTestIdentifiers(OxygenSensorLocation location);
  void detectEcuName(unsigned int index);
  bool areAllPresentFor1D() const;
  void setFuelTrimByteUsage() const;

  void addSupportedId(unsigned char id);
  void addSupportedTids(OxygenSensorLocation location, const IdList& tids);
  std::shared_ptr<IdList> getOids(ObdMode mode, unsigned char frame) const;
  std::unique_ptr<SupportedOids> getOidParameter(ObdMode mode, unsigned char oid, unsigned char frame) const;

  const unsigned int m_id;
  const ObdProtocol m_protocol;
  const std::string m_protocolDescription;
  const std::weak_ptr<IObdProxy> m_proxy;  // weak, since the proxy holds its control units

  mutable std::mutex m_mutex;  // guards all that follows, the contents of the lists included
  const std::shared_ptr<IdList> m_mode01Ids;
  std::map<unsigned char, std::shared_ptr<IdList>> m_mode02Ids;  // by freeze frame
  std::map<OxygenSensorLocation, IdList> m_mode05Tids;
  const std::shared_ptr<IdList> m_mode06Ids;
  const std::shared_ptr<IdList> m_mode08Ids;
  const std::shared_ptr<IdList> m_mode09Ids;
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
