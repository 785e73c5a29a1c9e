#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

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
