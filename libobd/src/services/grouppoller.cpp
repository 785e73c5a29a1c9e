#include "services/grouppoller.h"

#include <algorithm>
#include <set>
#include <utility>

namespace obd {

namespace {

// In rounds: how often a value is worked out that asks the adapter alone, as the voltage of the battery does,
// which takes a fifth of a second; and how often one whose needs do not fit into groups, so that it has a
// round of its own.
constexpr unsigned long IndependentTurn = 150;
constexpr unsigned long SeparateTurn = 4;
constexpr unsigned long AtOnce = 1000;

}  // namespace

GroupPoller::GroupPoller(unsigned int ecuId, OnDone onDone, OnDeclined onDeclined)
    : m_onDone(std::move(onDone)),
      m_onDeclined(std::move(onDeclined)),
      m_query(std::make_shared<SensorGroup>(ecuId)) {}

void GroupPoller::add(const Parameter& parameter) {
  const auto pid = static_cast<unsigned char>(parameter->pid());
  if (fitsIntoGroup(pid)) {
    m_live.insert_or_assign(pid, parameter);
    m_planner.add(pid);
  } else {
    m_calculated.try_emplace(parameter, Calculated{{}, AtOnce});
  }
}

void GroupPoller::remove(const Parameter& parameter) {
  const auto pid = static_cast<unsigned char>(parameter->pid());
  if (m_calculated.erase(parameter) != 0) {
    keepTogether();
  }
  if (m_live.erase(pid) != 0) {
    m_planner.remove(pid);
  }
}

std::vector<GroupPoller::Parameter> GroupPoller::parameters() const {
  std::vector<Parameter> all;
  for (const auto& [pid, parameter] : m_live) {
    all.push_back(parameter);
  }
  for (const auto& [parameter, calculated] : m_calculated) {
    all.push_back(parameter);
  }
  return all;
}

void GroupPoller::run() {
  if (m_ended || m_busy || empty()) {
    return;
  }
  plan(*m_query.subject());
  m_busy = m_query.dispatch([this](bool, const std::shared_ptr<SensorGroup>&) { onRun(); });
}

void GroupPoller::plan(SensorGroup& group) {
  group.reset();
  for (auto& [parameter, calculated] : m_calculated) {
    ++calculated.waited;
  }
  // Every other round is for what is live.
  const bool livesTurn = std::exchange(m_lastSeparate, false) && !m_live.empty();
  m_lastSeparate = !livesTurn && planSeparate(group, std::max<unsigned long>(SeparateTurn, m_live.size()));
  if (m_lastSeparate) {
    return;
  }
  for (const PidLength& one : m_planner.next()) {
    const auto found = m_live.find(one.pid);
    group.ask(one, found == m_live.end() ? nullptr : found->second);
  }
  for (auto& [parameter, calculated] : m_calculated) {
    if (comesAlong(calculated, group)) {
      group.calculate(parameter);
      calculated.waited = 0;
    }
  }
  if (group.asked().empty() && group.calculated().empty()) {
    planSeparate(group, 0);
  }
}

bool GroupPoller::isGrouped(const Calculated& calculated) const {
  return calculated.needs && calculated.needs->size() < MaxGroupSize &&
         std::ranges::all_of(*calculated.needs, [this](auto pid) { return m_planner.isGrouped(pid); });
}

// Whether a group holds all that a value needs.
bool GroupPoller::comesAlong(const Calculated& calculated, const SensorGroup& group) const {
  if (!isGrouped(calculated)) {
    return false;
  }
  const auto isAsked = [&](unsigned char pid) {
    return std::ranges::find(group.asked(), pid, &PidLength::pid) != group.asked().end();
  };
  return calculated.needs->empty() ? calculated.waited > IndependentTurn
                                   : std::ranges::all_of(*calculated.needs, isAsked);
}

// Of the values that have a round of their own, the first one whose turn it is; of all if anything will do.
bool GroupPoller::planSeparate(SensorGroup& group, unsigned long turn) {
  const auto found = std::ranges::find_if(m_calculated, [&](const auto& entry) {
    return entry.second.waited > turn && (turn == 0 || !isGrouped(entry.second));
  });
  if (found == m_calculated.end()) {
    return false;
  }
  group.calculate(found->first);
  found->second.waited = 0;
  return true;
}

void GroupPoller::onRun() {
  // Observers may drop the service, or begin it anew.
  const std::shared_ptr<GroupPoller> self = shared_from_this();
  const std::shared_ptr<SensorGroup> group = m_query.subject();
  learn(*group);
  tellAll(*group);
  m_busy = false;
  if (m_ended) {
    return;
  }
  if (m_planner.declined()) {
    m_onDeclined();
  } else {
    run();
  }
}

void GroupPoller::learn(const SensorGroup& group) {
  if (group.asked().size() == 1) {
    m_planner.reportSingle(group.asked().front().pid, !group.told().empty(), group.ownLength());
  } else if (!group.asked().empty()) {
    m_planner.reportGroup(group.asked(), group.told());
  }
  for (const SensorGroup::Calculated& calculated : group.calculated()) {
    const auto found = m_calculated.find(calculated.parameter);
    if (calculated.read && found != m_calculated.end() && learn(found->second.needs, calculated.needs)) {
      keepTogether();
    }
  }
}

// What a value asks for only now and then, it may ask for by itself. True if anything is new.
bool GroupPoller::learn(std::optional<GroupPlanner::Pids>& needs, const GroupPlanner::Pids& asked) {
  if (!needs) {
    needs = asked;
    return true;
  }
  return std::erase_if(*needs, [&](unsigned char pid) { return !asked.contains(pid); }) != 0;
}

// What calculated values need stands together.
void GroupPoller::keepTogether() {
  std::set<GroupPlanner::Pids> blocks;
  for (const auto& [parameter, calculated] : m_calculated) {
    if (calculated.needs && !calculated.needs->empty()) {
      blocks.insert(*calculated.needs);
    }
  }
  m_planner.keepTogether(blocks);
}

void GroupPoller::tellAll(const SensorGroup& group) {
  for (const PidLength& one : group.asked()) {
    if (const Parameter& parameter = group.parameter(one.pid); parameter && m_live.contains(one.pid)) {
      // Who is missing from a group may still answer alone.
      const bool read = std::ranges::find(group.read(), one.pid) != group.read().end();
      if (read || group.asked().size() == 1) {
        tell(read, parameter);
      }
    }
  }
  for (const SensorGroup::Calculated& calculated : group.calculated()) {
    if (m_calculated.contains(calculated.parameter)) {
      tell(calculated.read, calculated.parameter);
    }
  }
}

void GroupPoller::tell(bool success, const Parameter& parameter) {
  if (!m_ended) {
    m_onDone(success, parameter);
  }
}

}  // namespace obd
