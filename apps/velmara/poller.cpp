#include "poller.h"

#include <algorithm>
#include <utility>

#include "dispatch/dispatcher.h"

namespace velmara {

namespace {
constexpr std::size_t GroupSize = 24;    // two groups fit into the library's queue with room to spare
constexpr std::size_t GroupsAtOnce = 2;  // so that the worker never waits for the main thread
constexpr unsigned FailureLimit = 3;
}  // namespace

// A group of parameters, and the marker that follows it through the queue.
class Poller::Group : public obd::IDispatchable {
 public:
  explicit Group(Poller& poller) : m_poller(poller) {}

  void add(int identifier) { m_members[identifier] = {}; }
  bool busy() const { return m_busy; }

  void begin(unsigned rounds) {
    for (auto& [identifier, member] : m_members) {
      member = {};
      member.left = rounds;
      member.endless = rounds == 0;
    }
  }

  // What is still to be read.
  std::vector<int> wanted() const {
    std::vector<int> identifiers;
    for (const auto& [identifier, member] : m_members) {
      if (member.endless || member.left != 0) {
        identifiers.push_back(identifier);
      }
    }
    return identifiers;
  }

  void send(obd::ISensorService& service, const std::weak_ptr<obd::IDispatchable>& self) {
    m_asked = wanted();
    for (auto& [identifier, member] : m_members) {
      member.answered = false;
    }
    service.refreshOnce(m_asked);
    m_busy = obd::Dispatcher::getInstance().update(self);
  }

  void answered(int identifier) {
    if (const auto found = m_members.find(identifier); found != m_members.end()) {
      found->second.answered = true;
      found->second.everAnswered = true;
    }
  }

  void collectSilent(std::vector<int>& identifiers) const {
    for (const auto& [identifier, member] : m_members) {
      if (!member.everAnswered && member.failures != 0) {
        identifiers.push_back(identifier);
      }
    }
  }

  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}

  // Results come back in the order of the questions, so all of this group's have been told by now.
  void notify() override {
    m_busy = false;
    for (const int identifier : m_asked) {
      Member& member = m_members.at(identifier);
      member.failures = member.answered ? 0 : member.failures + 1;
      if (!member.endless) {
        if (member.answered) {
          --member.left;
        } else if (member.failures >= FailureLimit) {
          member.left = 0;
        }
      }
    }
    m_poller.onGroupOver();
  }

 private:
  struct Member {
    unsigned left = 0;
    unsigned failures = 0;
    bool endless = false;
    bool answered = false;
    bool everAnswered = false;
  };

  Poller& m_poller;
  std::map<int, Member> m_members;
  std::vector<int> m_asked;
  bool m_busy = false;
};

Poller::Poller(obd::ISensorService& service, const std::vector<int>& identifiers, OnValues onValues)
    : m_service(service), m_onValues(std::move(onValues)) {
  const std::size_t groups =
      std::min(identifiers.size(), std::max(GroupsAtOnce, (identifiers.size() + GroupSize - 1) / GroupSize));
  for (std::size_t i = 0; i < groups; ++i) {
    m_groups.push_back(std::make_shared<Group>(*this));
  }
  for (std::size_t i = 0; i < identifiers.size(); ++i) {
    m_groups[i * groups / identifiers.size()]->add(identifiers[i]);
  }
  m_service.attach(this);
}

Poller::~Poller() {
  m_service.detach(this);
}

void Poller::start(unsigned rounds) {
  for (const std::shared_ptr<Group>& group : m_groups) {
    group->begin(rounds);
  }
  m_latest = Clock::now();
  startGroups();
}

bool Poller::done() const {
  return std::all_of(m_groups.begin(), m_groups.end(),
                     [](const std::shared_ptr<Group>& group) { return group->wanted().empty(); });
}

std::vector<int> Poller::silent() const {
  std::vector<int> identifiers;
  for (const std::shared_ptr<Group>& group : m_groups) {
    group->collectSilent(identifiers);
  }
  return identifiers;
}

std::chrono::milliseconds Poller::quietTime() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_latest);
}

void Poller::onSensorUpdated(bool /*success*/, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                             const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values) {
  m_latest = Clock::now();
  ++m_readings;
  for (const std::shared_ptr<Group>& group : m_groups) {
    group->answered(static_cast<int>(parameter->pid()));
  }
  m_onValues(parameter, values);
}

void Poller::onGroupOver() {
  --m_onTheWay;
  startGroups();
}

// Goes round the groups from where it left off.
void Poller::startGroups() {
  for (std::size_t tried = 0; tried < m_groups.size() && m_onTheWay < GroupsAtOnce; ++tried) {
    const std::shared_ptr<Group>& group = m_groups[m_next];
    m_next = (m_next + 1) % m_groups.size();
    if (!group->busy() && !group->wanted().empty()) {
      group->send(m_service, group);
      if (group->busy()) {
        ++m_onTheWay;
      }
    }
  }
}

}  // namespace velmara
