#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/obdparameter.h"
#include "powertrain/parameteridentifier.h"
#include "powertrain/sensorinfo.h"
#include "powertrain/sensorvalue.h"

namespace obd {

/// One PID of service 01, or the same PID of a freeze frame of service 02 (SAE J1979).
///
/// A value stays until its control unit sends a newer one: `clear`, which runs before every refresh, forgets
/// none unless a class says so.
class VELMARA_EXPORT PowertrainParameter : public ObdParameter {
 public:
  /// `frame` counts for service 02 only.
  PowertrainParameter(ObdMode mode, unsigned char frame);

  unsigned char frame() const { return m_frame; }

  virtual ParameterIdentifier::Id pid() const = 0;
  /// The text for the user; some read differently from one control unit to the next.
  virtual std::string description(const IEcu& ecu) = 0;
  /// What sensors the parameter has, whether or not there are values.
  virtual std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) = 0;
  /// The values of a control unit, as far as it has sent any, in fresh objects.
  virtual std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) = 0;

 protected:
  void getRequestData(std::vector<unsigned char>& data) const override { data = request().bytes(); }
  void getSignature(std::vector<unsigned char>& data) const override { request().getSignature(data); }
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

  /// Digests the data bytes of a reply, of which there is at least one. False if they are too few or make no
  /// sense; what was stored before stays then.
  virtual bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) = 0;

 private:
  Request request() const;

  unsigned char m_frame;
  ObdMode m_mode;
  std::vector<unsigned char> m_payload;  // kept for its memory
};

}  // namespace obd
