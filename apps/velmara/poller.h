#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "services/isensorservice.h"

namespace velmara {

/// Reads parameters over and over, or a number of times, and knows which of them do not answer. For the main
/// thread.
///
/// The sensor service's own polling keeps one place in the library's queue per parameter, and there are 63;
/// and it does not tell of a read that failed. So parameters are asked for in groups, two of them on the way
/// at any time, each followed by a marker through the same queue. When the marker comes back the group is
/// through.
class Poller : private obd::ISensorServiceObserver {
 public:
  using OnValues = std::function<void(const std::shared_ptr<obd::ParameterDescriptor>&,
                                      const std::vector<std::shared_ptr<obd::SensorValueDataModel>>&)>;

  Poller(obd::ISensorService& service, const std::vector<int>& identifiers, OnValues onValues);
  ~Poller() override;
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// Begins. Each parameter is read `rounds` times, or until the end of the poller for 0; it is given up
  /// after three failures in a row if the rounds are limited.
  void start(unsigned rounds);

  /// Whether all rounds are over.
  bool done() const;

  /// Parameters that were asked for and have not given a single value.
  std::vector<int> silent() const;

  /// How long no value has come.
  std::chrono::milliseconds quietTime() const;

  /// Values of all parameters since the start.
  std::size_t readings() const { return m_readings; }

 private:
  using Clock = std::chrono::steady_clock;
  class Group;

  void onSensorUpdated(bool success, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values) override;

  void startGroups();
  void onGroupOver();

  obd::ISensorService& m_service;
  OnValues m_onValues;
  std::vector<std::shared_ptr<Group>> m_groups;
  std::size_t m_next = 0;
  std::size_t m_onTheWay = 0;
  std::size_t m_readings = 0;
  Clock::time_point m_latest;
};

}  // namespace velmara
