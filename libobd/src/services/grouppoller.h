#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "dispatch/query.h"
#include "services/groupplanner.h"
#include "services/sensorgroup.h"

namespace obd {

/// Polls live and calculated values of a control unit in groups, one request after the other. What calculated
/// values are worked out from stands together in one request, and they take it from its reply. For the thread
/// that calls `Dispatcher::dispatch`.
class GroupPoller : public std::enable_shared_from_this<GroupPoller> {
 public:
  using Parameter = SensorGroup::Parameter;
  /// A value has been read, or could not be read by itself. May change what is polled, and end the poller.
  using OnDone = std::function<void(bool success, const Parameter& parameter)>;
  /// The unit has shown that it does not answer groups. What was polled is to be asked for otherwise.
  using OnDeclined = std::function<void()>;

  GroupPoller(unsigned int ecuId, OnDone onDone, OnDeclined onDeclined);

  /// Takes a parameter into the round: one whose PID fits into a group, or a calculated one.
  void add(const Parameter& parameter);
  void remove(const Parameter& parameter);
  /// What is polled.
  std::vector<Parameter> parameters() const;
  bool empty() const { return m_live.empty() && m_calculated.empty(); }

  /// Keeps going until nothing is polled any more, or until the unit has declined.
  void run();
  /// Nothing is told any more. A request that is on its way is called off by letting go of this.
  void end() { m_ended = true; }

 private:
  struct Calculated {
    std::optional<GroupPlanner::Pids> needs;  // that it asks for each time; nothing before the first
    unsigned long waited = 0;                 // rounds since it was worked out
  };

  void plan(SensorGroup& group);
  bool isGrouped(const Calculated& calculated) const;
  bool comesAlong(const Calculated& calculated, const SensorGroup& group) const;
  bool planSeparate(SensorGroup& group, unsigned long turn);
  void keepTogether();
  void onRun();
  void learn(const SensorGroup& group);
  static bool learn(std::optional<GroupPlanner::Pids>& needs, const GroupPlanner::Pids& asked);
  void tellAll(const SensorGroup& group);
  void tell(bool success, const Parameter& parameter);

  const OnDone m_onDone;
  const OnDeclined m_onDeclined;
  GroupPlanner m_planner;
  std::map<unsigned char, Parameter> m_live;
  std::map<Parameter, Calculated> m_calculated;
  bool m_lastSeparate = false;
  bool m_busy = false;
  bool m_ended = false;
  Query<SensorGroup> m_query;
};

}  // namespace obd
