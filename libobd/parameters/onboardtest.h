#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "core/obdparameter.h"
#include "powertrain/unitvalues.h"

namespace obd {

/// Service 08: starts a test routine in the control units (SAE J1979). It acts on the vehicle. Results may be
/// read from any thread while an update runs.
class VELMARA_EXPORT OnBoardTest : public ObdParameter {
 public:
  enum TestResult : int {
    Accepted = 0,
    Refused = 1,  ///< by a negative response or, before CAN, by a status byte other than 0
    TooShort = 2,
    Unknown = 3  ///< the unit did not answer
  };

  /// Before CAN a request has seven bytes, which is what `protocol` decides.
  OnBoardTest(unsigned char tid, ObdProtocol protocol) : m_tid(tid), m_protocol(protocol) {}

  unsigned char tid() const { return m_tid; }
  /// `Refused` for a unit without a reply if any unit gave a negative response; else `Unknown` with a line in
  /// the log.
  TestResult result(const IEcu& ecu) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  void clear() override { m_results.clear(); }
  bool setResponseData(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  int nack() const override { return m_latestNack; }

 protected:
  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  bool parseFromCanBus(unsigned int id, const std::vector<unsigned char>& payload);
  bool parseFromNonCanBus(unsigned int id, const std::vector<unsigned char>& payload);

  unsigned char m_tid;
  ObdProtocol m_protocol;
  std::atomic<int> m_latestNack = 0;  // the base's, for other threads
  UnitValues<TestResult> m_results;
};

/// A test routine with its texts and how it fared.
class VELMARA_EXPORT TestRoutineDataModel {
 public:
  /// Numbered as `OnBoardTest::TestResult`.
  enum Result : int { Accepted = 0, Refused = 1, TooShort = 2, Unknown = 3 };

  TestRoutineDataModel(int tid, Result result) : m_tid(tid), m_result(result) {}
  TestRoutineDataModel(const TestRoutineDataModel&) = default;
  TestRoutineDataModel& operator=(const TestRoutineDataModel&) = default;
  virtual ~TestRoutineDataModel() = default;

  /// A negative response code, `ObdParameter::nack`.
  void setNackReason(int nack) { m_nack = nack; }

  int tid() const { return m_tid; }
  Result result() const { return m_result; }
  /// "NA" for a routine that the library does not know.
  std::string description() const;
  /// What the user should know before starting it; empty for a routine that the library does not know.
  std::string instructions() const;
  /// The negative response in words; "Acknowledged" if there was none.
  std::string nackReason() const;

 private:
  int m_tid;
  Result m_result;
  int m_nack = 0;
};

}  // namespace obd
