#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"
#include "powertrain/measurementunit.h"
#include "powertrain/parameterdescriptor.h"

namespace obd {

/// One sensor's value as text. A value that is not numeric has no minimum, maximum and average.
struct VELMARA_EXPORT SensorValueDataModel {
  SensorValueDataModel(int itsUid, const std::string& itsValue, const std::string& itsMinimum,
                       const std::string& itsMaximum, const std::string& itsAverage)
      : uid(itsUid), value(itsValue), minimum(itsMinimum), maximum(itsMaximum), average(itsAverage) {}
  SensorValueDataModel(int itsUid, const std::string& itsValue) : uid(itsUid), value(itsValue) {}

  int uid;
  std::string value;
  std::string minimum;
  std::string maximum;
  std::string average;
};

/// One sensor with, where it was read, its value.
struct VELMARA_EXPORT SensorDataModel {
  /// The library passes this pointer through and leaves its contents to the front end.
  struct Numeric;

  SensorDataModel(bool isExtended, int itsUid, const std::string& itsDescription, MeasurementUnit itsUnit,
                  const std::shared_ptr<Numeric>& itsNumeric)
      : SensorDataModel(isExtended, itsUid, itsDescription, itsUnit, nullptr, itsNumeric) {}
  SensorDataModel(bool isExtended, int itsUid, const std::string& itsDescription, MeasurementUnit itsUnit,
                  const std::shared_ptr<SensorValueDataModel>& itsValue,
                  const std::shared_ptr<Numeric>& itsNumeric)
      : extended(isExtended),
        uid(itsUid),
        description(itsDescription),
        unit(itsUnit),
        numeric(itsNumeric),
        value(itsValue) {}

  bool extended;  ///< false for coolant temperature, engine speed, vehicle speed and intake air temperature
  int uid;
  std::string description;
  MeasurementUnit unit;
  std::shared_ptr<Numeric> numeric;
  std::shared_ptr<SensorValueDataModel> value;  ///< null if there is no value
};

/// Hears of sensor values on the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ISensorServiceObserver {
 public:
  virtual ~ISensorServiceObserver() = default;
  /// One parameter has been read. Failed reads are repeated and not reported.
  virtual void onSensorUpdated(bool /*success*/, const std::shared_ptr<ParameterDescriptor>& /*parameter*/,
                               const std::vector<std::shared_ptr<SensorValueDataModel>>& /*values*/) {}
  /// Parameters, statistics and polling are void; call `refresh` again.
  virtual void onInvalidated() {}
};

/// How `ISensorService::refresh` asks.
enum class SensorGrouping : int {
  Off,          ///< one request per parameter
  On,           ///< up to six PIDs in one request
  Declined,     ///< wished for, but the control unit does not answer such requests
  Unavailable,  ///< wished for, but there are none before CAN
};

/// Live sensors of the selected control unit, with statistics. Only `readSensors` waits for the vehicle. For
/// the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ISensorService : public virtual tavrix::INotifier<ISensorServiceObserver> {
 public:
  virtual bool isConnected() = 0;
  /// What can be read, in ascending order of identifier.
  virtual std::vector<std::shared_ptr<ParameterDescriptor>> parameters() = 0;
  /// Reads each identifier once. With an empty list it ends the polling after each parameter's next value.
  virtual void refreshOnce(const std::vector<int>& identifiers) = 0;
  /// Polls the identifiers over and over; unknown ones are passed over, and so are all of them until the
  /// connection was told by `IConnectionServiceObserver::onConnected`.
  virtual void refresh(const std::vector<int>& identifiers) = 0;
  /// Ends all polling and starts the statistics anew, without an observer call.
  virtual void reset() = 0;
  /// Reads one parameter of the control unit and waits for it, queries that were queued before included, but
  /// no longer than 1.55 s; empty on failure. Calculated values cannot be read this way.
  virtual std::vector<std::shared_ptr<SensorDataModel>> readSensors(int identifier) = 0;

  /// Lets `refresh` and `refreshOnce` ask for up to six PIDs with one request, as SAE J1979 allows on CAN,
  /// where more than one is polled. Off at first. Counts from the next `refresh` on, and gives a unit that
  /// has declined another chance.
  ///
  /// Values and observer calls are those of single requests, but for their rhythm: load, pressure, speeds,
  /// timing, air flow, positions, oxygen sensors and torque come with every request, or in turns where there
  /// are more than six; temperatures, counters and the rest share what places are left, one at least. So
  /// statistics of the former rest on more values. A calculated value takes what it needs from the same
  /// reply. The first group has to come back
  /// complete and as it was asked for; otherwise each PID is asked for alone, until it has answered in its
  /// own length, and for good if the unit does not answer it together with others. A unit that refuses
  /// groups, cuts them short, or answers what cannot be taken apart without doubt is asked one by one.
  /// Nothing of a doubtful reply is ever told.
  virtual void setGrouping(bool on) = 0;
  /// How parameters are asked for now.
  virtual SensorGrouping grouping() = 0;
  /// What came of the selected control unit: within `onSensorUpdated` to the parameter that it tells of. Of a
  /// calculated value, what came to its inputs.
  virtual UnitReply lastReply() = 0;
};

namespace SensorServiceBuilder {
VELMARA_EXPORT std::shared_ptr<ISensorService> createSensorService();
}  // namespace SensorServiceBuilder

}  // namespace obd
