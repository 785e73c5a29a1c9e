#include "velmara/client/poller.h"

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>

#include "dispatch/dispatcher.h"
#include "readings.h"
#include "services/iobdvelmara.h"
#include "services/isensorservice.h"
#include "stopwatch.h"
#include "velmara/client/statistics.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::size_t GroupSize = 24;    // two groups fit into the library's queue with room to spare
constexpr std::size_t GroupsAtOnce = 2;  // so that the worker never waits for the loop's thread
constexpr unsigned FailureLimit = 3;

using Models = std::vector<std::shared_ptr<obd::SensorValueDataModel>>;

// The library's statistics as long as they hold: for good after one value that is no number, they do not.
std::string firstFinite(const std::string& libraryText, const std::string& ownText) {
  return finiteNumber(libraryText) ? libraryText : ownText;
}

}  // namespace

// The sensor service's own polling keeps one place in the library's queue per parameter, and there are 63;
// and it does not tell of a read that failed. So parameters are asked for in groups, two of them on the way
// at any time, each followed by a marker through the same queue. When the marker comes back the group is
// through.
class Poller::State : private obd::ISensorServiceObserver,
                      public std::enable_shared_from_this<Poller::State> {
 public:
  State(Session& itsSession, const ControlUnit& unit)
      : session(itsSession), m_unit(unit.id), m_unitSystem(itsSession.unitSystem()) {
    session.selectUnit(unit);
    m_service = obd::SensorServiceBuilder::createSensorService();
    for (const auto& parameter : m_service->parameters()) {
      const std::vector<Sensor> own = sensorsOf(*parameter);
      sensors.insert(sensors.end(), own.begin(), own.end());
    }
    m_service->attach(this);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() override { m_service->detach(this); }

  void start(const std::vector<int>& parameters, unsigned rounds, OnReadings onReadings, bool fast);
  // Whether all is over; goes on with what found no room in the queue.
  bool turn() {
    if (m_pace == Pace::Grouped) {
      keepFast();
    }
    startGroups();
    return done();
  }
  Pace pace() const { return m_pace; }
  bool done() const;
  std::vector<int> silent() const;
  void onGroupOver() {
    --m_onTheWay;
    startGroups();
  }

  Session& session;
  std::vector<Sensor> sensors;
  std::size_t readings = 0;
  Stopwatch latest;  // since the last value

 private:
  class Group;

  void onSensorUpdated(bool success, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const Models& values) override;
  bool isVoid() const;
  void speedUp(const std::vector<int>& parameters);
  void keepFast();
  void startGroups();

  std::shared_ptr<obd::ISensorService> m_service;
  OnReadings m_onReadings;
  std::map<int, Statistics> m_statistics;  // by uid
  std::vector<std::shared_ptr<Group>> m_groups;
  std::size_t m_next = 0;
  std::size_t m_onTheWay = 0;
  const unsigned int m_unit;
  UnitSystem m_unitSystem;
  Pace m_pace = Pace::Single;
  std::vector<int> m_parameters;  // that the service polls in groups
};

// A group of parameters, and the marker that follows it through the queue.
class Poller::State::Group : public obd::IDispatchable {
 public:
  explicit Group(std::weak_ptr<State> poller) : m_poller(std::move(poller)) {}

  void add(int parameter, unsigned rounds) { m_members[parameter] = {rounds, 0, rounds == 0, false, false}; }
  bool busy() const { return m_busy; }

  // What is still to be read.
  std::vector<int> wanted() const {
    std::vector<int> parameters;
    for (const auto& [parameter, member] : m_members) {
      if (member.endless || member.left != 0) {
        parameters.push_back(parameter);
      }
    }
    return parameters;
  }

  void send(obd::ISensorService& service, const std::weak_ptr<obd::IDispatchable>& self) {
    m_asked = wanted();
    for (auto& [parameter, member] : m_members) {
      member.answered = false;
    }
    service.refreshOnce(m_asked);
    m_busy = obd::Dispatcher::getInstance().update(self);
  }

  void answered(int parameter) {
    if (const auto found = m_members.find(parameter); found != m_members.end()) {
      found->second.answered = true;
      found->second.everAnswered = true;
    }
  }

  // `grouped`: nobody has counted failures.
  void collectSilent(std::vector<int>& parameters, bool grouped) const {
    for (const auto& [parameter, member] : m_members) {
      if (!member.everAnswered && (member.failures != 0 || grouped)) {
        parameters.push_back(parameter);
      }
    }
  }

  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}

  // Results come back in the order of the questions, so all of this group's have been told by now.
  void notify() override {
    m_busy = false;
    for (const int parameter : m_asked) {
      Member& member = m_members.at(parameter);
      member.failures = member.answered ? 0 : member.failures + 1;
      if (!member.endless) {
        if (member.answered) {
          --member.left;
        } else if (member.failures >= FailureLimit) {
          member.left = 0;
        }
      }
    }
    if (const std::shared_ptr<State> poller = m_poller.lock()) {
      poller->onGroupOver();
    }
  }

 private:
  struct Member {
    unsigned left = 0;
    unsigned failures = 0;
    bool endless = false;
    bool answered = false;
    bool everAnswered = false;
  };

  const std::weak_ptr<State> m_poller;
  std::map<int, Member> m_members;
  std::vector<int> m_asked;
  bool m_busy = false;
};

void Poller::State::start(const std::vector<int>& parameters, unsigned rounds, OnReadings onReadings,
                          bool fast) {
  if (m_pace == Pace::Grouped) {
    m_service->reset();
  }
  m_pace = Pace::Single;
  const std::size_t groups =
      std::min(parameters.size(), std::max(GroupsAtOnce, (parameters.size() + GroupSize - 1) / GroupSize));
  m_onReadings = std::move(onReadings);
  m_statistics.clear();
  m_groups.clear();
  m_next = 0;
  m_onTheWay = 0;
  m_unitSystem = session.unitSystem();
  readings = 0;
  for (std::size_t i = 0; i < groups; ++i) {
    m_groups.push_back(std::make_shared<Group>(weak_from_this()));
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    m_groups[i * groups / parameters.size()]->add(parameters[i], rounds);
  }
  latest.restart();
  if (fast && rounds == 0 && parameters.size() > 1) {
    speedUp(parameters);
  }
  startGroups();
}

// The service polls by itself, with one place in the queue for all.
void Poller::State::speedUp(const std::vector<int>& parameters) {
  m_service->setGrouping(true);
  switch (m_service->grouping()) {
    case obd::SensorGrouping::On:
      m_pace = Pace::Grouped;
      m_parameters = parameters;
      m_service->refresh(parameters);
      break;
    case obd::SensorGrouping::Unavailable:
      m_pace = Pace::Unavailable;
      break;
    default:
      m_pace = Pace::Declined;
  }
}

// Takes over from the service where the unit has declined, and sets it going again where its request found no
// room in the library's queue.
void Poller::State::keepFast() {
  if (m_service->grouping() == obd::SensorGrouping::Declined) {
    m_pace = Pace::Declined;
    m_service->setGrouping(false);
    m_service->refreshOnce({});
  } else if (latest.elapsed() > std::chrono::seconds(1)) {
    m_service->refresh(m_parameters);
  }
}

// Whether the service belongs to another unit now, or has forgotten all that it knew. What it says of that
// itself may come on any thread, and comes for a lost link as well.
bool Poller::State::isVoid() const {
  const std::shared_ptr<obd::IEcu> ecu = session.facade().ecuManager()->currentEcu();
  return (ecu && ecu->id() != m_unit) || session.unitSystem() != m_unitSystem;
}

bool Poller::State::done() const {
  return isVoid() || std::all_of(m_groups.begin(), m_groups.end(),
                                 [](const std::shared_ptr<Group>& group) { return group->wanted().empty(); });
}

std::vector<int> Poller::State::silent() const {
  std::vector<int> parameters;
  for (const std::shared_ptr<Group>& group : m_groups) {
    group->collectSilent(parameters, m_pace == Pace::Grouped);
  }
  return parameters;
}

void Poller::State::onSensorUpdated(bool /*success*/,
                                    const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                    const Models& values) {
  if (isVoid()) {
    return;
  }
  latest.restart();
  // Another unit may have answered, and this one not: then these are no values.
  if (m_service->lastReply().kind != obd::UnitReply::Accepted) {
    return;
  }
  const int identifier = static_cast<int>(parameter->pid());
  ++readings;
  for (const std::shared_ptr<Group>& group : m_groups) {
    group->answered(identifier);
  }
  std::vector<SensorReading> told;
  for (const std::shared_ptr<obd::SensorValueDataModel>& value : values) {
    SensorReading reading{value->uid, printable(value->value), !value->minimum.empty(), {}, {}, {}};
    if (reading.numeric) {
      Statistics& statistics = m_statistics[value->uid];
      statistics.add(value->value);
      reading.value = finiteText(value->value);
      reading.minimum = firstFinite(value->minimum, statistics.minimum());
      reading.maximum = firstFinite(value->maximum, statistics.maximum());
      reading.average = firstFinite(value->average, statistics.average());
    }
    told.push_back(std::move(reading));
  }
  if (m_onReadings) {
    m_onReadings(identifier, told);
  }
}

// Goes round the groups from where it left off.
void Poller::State::startGroups() {
  if (m_pace == Pace::Grouped) {
    return;
  }
  for (std::size_t tried = 0; !isVoid() && tried < m_groups.size() && m_onTheWay < GroupsAtOnce; ++tried) {
    const std::shared_ptr<Group>& group = m_groups[m_next];
    m_next = (m_next + 1) % m_groups.size();
    if (!group->busy() && !group->wanted().empty()) {
      group->send(*m_service, group);
      if (group->busy()) {
        ++m_onTheWay;
      }
    }
  }
}

Poller::Poller(Session& session, const ControlUnit& unit) : m_state(std::make_shared<State>(session, unit)) {}

Poller::~Poller() = default;

const std::vector<Sensor>& Poller::sensors() const {
  return m_state->sensors;
}

void Poller::start(const std::vector<int>& parameters, unsigned rounds, OnReadings onReadings, bool fast) {
  m_state->start(parameters, rounds, std::move(onReadings), fast);
}

Pace Poller::pace() const {
  return m_state->pace();
}

bool Poller::run(const std::function<bool()>& stop, std::optional<std::chrono::milliseconds> limit) {
  return m_state->session.pumpUntil(
      [&] {
        const bool stopped = stop && stop();
        if (m_state->latest.elapsed() > Patience) {
          throw Failure(Failure::Kind::NoData,
                        fmt::format("The vehicle does not answer any more: no value for {} s.",
                                    Patience.count() / 1000),
                        "Is the ignition still on, and the adapter in its socket?");
        }
        return m_state->turn() || stopped;
      },
      limit);
}

bool Poller::done() const {
  return m_state->done();
}

std::vector<int> Poller::silent() const {
  return m_state->silent();
}

std::size_t Poller::readings() const {
  return m_state->readings;
}

}  // namespace velmara
