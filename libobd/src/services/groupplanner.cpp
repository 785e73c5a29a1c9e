#include "services/groupplanner.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace obd {

namespace {

// In requests: how often those come that are asked for alone, how often one that does not answer gets another
// try, and how often a group is given to finding out who spoils groups.
constexpr unsigned long FastTurn = 3;
constexpr unsigned long SlowTurn = 8;
constexpr unsigned TestTurn = 4;

constexpr unsigned MostFailures = 5;  // of groups in a row, before any came right
constexpr unsigned MostLaterFailures = 10;
constexpr unsigned MostMisses = 2;     // of a PID in groups, in a row
constexpr unsigned NoiseFailures = 1;  // of groups in a row that may be put down to noise

// What a person watches while it changes: load, manifold pressure, speeds, timing, air flow, throttle, oxygen
// sensors, lambda, pedals, torque. All else is slow.
bool changesFast(unsigned char pid) {
  constexpr unsigned char Fast[] = {0x04, 0x0B, 0x0C, 0x0D, 0x0E, 0x10, 0x11, 0x14, 0x15, 0x16, 0x17, 0x18,
                                    0x19, 0x1A, 0x1B, 0x24, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x34,
                                    0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B, 0x43, 0x44, 0x45, 0x47, 0x48,
                                    0x49, 0x4A, 0x4B, 0x4C, 0x5A, 0x5D, 0x5E, 0x61, 0x62, 0x64, 0x66};
  return std::ranges::binary_search(Fast, pid);
}

}  // namespace

void GroupPlanner::add(unsigned char pid) {
  Member* member = find(pid);
  if (member == nullptr) {
    member = &m_members.emplace_back();
    member->pid = pid;
    member->fast = changesFast(pid);
    member->length = {pid, standardLength(pid), false};
    member->standing = member->length.bytes == 0 ? Standing::Unproven : Standing::Candidate;
  }
  member->shown = true;
}

void GroupPlanner::remove(unsigned char pid) {
  if (Member* const member = find(pid)) {
    member->shown = false;
  }
  std::erase_if(m_members, [this](const Member& member) { return !member.shown && !isBlocked(member.pid); });
}

void GroupPlanner::keepTogether(const std::set<Pids>& blocks) {
  std::erase_if(m_blocks, [&](const auto& entry) { return !blocks.contains(entry.first); });
  for (const Pids& block : blocks) {
    m_blocks.try_emplace(block);
    for (const unsigned char pid : block) {
      if (find(pid) == nullptr) {
        add(pid);
        find(pid)->shown = false;
      }
    }
  }
  std::erase_if(m_members, [this](const Member& member) { return !member.shown && !isBlocked(member.pid); });
}

GroupPlanner::Member* GroupPlanner::find(unsigned char pid) {
  const auto found = std::ranges::find(m_members, pid, &Member::pid);
  return found == m_members.end() ? nullptr : &*found;
}

bool GroupPlanner::isGrouped(unsigned char pid) const {
  const auto found = std::ranges::find(m_members, pid, &Member::pid);
  return found != m_members.end() && found->isGrouped();
}

bool GroupPlanner::isBlocked(unsigned char pid) const {
  return std::ranges::any_of(m_blocks, [pid](const auto& entry) { return entry.first.contains(pid); });
}

bool GroupPlanner::isPicked(unsigned char pid) const {
  return std::ranges::find(m_picked, pid, &PidLength::pid) != m_picked.end();
}

std::span<const PidLength> GroupPlanner::next() {
  const auto unproven = [](const Member& member) {
    return member.standing == Standing::Unproven && (member.failures == 0 || member.waited >= SlowTurn);
  };
  const auto alone = [](const Member& member) {
    return member.standing == Standing::Alone && member.shown &&
           member.waited >= (member.fast && member.failures == 0 ? FastTurn : SlowTurn);
  };
  const auto shown = [](const Member& member) { return member.shown; };

  m_picked.clear();
  ++m_requests;
  const bool timeToTest = m_requests % TestTurn == 0;
  // However many are asked for alone, every other request is for a group.
  const bool groupsTurn = std::exchange(m_lastSingle, false);
  // Whoever answers nothing waits for a turn, unless there is nothing else to do.
  (void)((timeToTest && pickTest()) || (groupsTurn && pickGroup()) || pickSingle(unproven) ||
         pickSingle(alone) || pickGroup() || pickTest() || pickSingle(shown));
  m_lastSingle = m_picked.size() == 1;
  count();
  return m_picked;
}

// Who has waited longest.
bool GroupPlanner::pickSingle(bool (*isDue)(const Member& member)) {
  const Member* longest = nullptr;
  for (const Member& member : m_members) {
    if (isDue(member) && (longest == nullptr || member.waited > longest->waited)) {
      longest = &member;
    }
  }
  if (longest != nullptr) {
    m_picked.push_back(longest->length);
  }
  return longest != nullptr;
}

// A suspect beside one that is beyond suspicion, or beside another suspect where nobody is.
bool GroupPlanner::pickTest() {
  Member* const suspect = leastTested(nullptr);
  const auto good = std::ranges::find(m_members, Standing::Good, &Member::standing);
  Member* const beside = good != m_members.end() ? &*good : leastTested(suspect);
  if (suspect == nullptr || beside == nullptr) {
    return false;
  }
  for (Member* const member : {suspect, beside}) {
    ++member->tests;
    m_picked.push_back(member->length);
  }
  return true;
}

// Of the suspects but one.
GroupPlanner::Member* GroupPlanner::leastTested(const Member* but) {
  Member* least = nullptr;
  for (Member& member : m_members) {
    if (member.standing == Standing::Suspect && &member != but &&
        (least == nullptr || member.tests < least->tests)) {
      least = &member;
    }
  }
  return least;
}

// Two at least.
bool GroupPlanner::pickGroup() {
  collectItems();
  const bool slowWait = std::ranges::any_of(m_items, [](const Item& item) { return !item.fast; });
  for (const Item& item : m_items) {
    take(item, item.fast && slowWait && !m_picked.empty() ? MaxGroupSize - 1 : MaxGroupSize);
  }
  if (m_picked.size() < 2) {
    m_picked.clear();
  }
  return !m_picked.empty();
}

// In the order in which they get their places.
void GroupPlanner::collectItems() {
  m_items.clear();
  for (const auto& [block, waited] : m_blocks) {
    if (std::ranges::all_of(block, [this](unsigned char pid) { return isGrouped(pid); })) {
      m_items.push_back({true, waited, &block, 0});
    }
  }
  for (const Member& member : m_members) {
    if (member.shown && member.isGrouped()) {
      m_items.push_back({member.fast, member.waited, nullptr, member.pid});
    }
  }
  std::ranges::sort(m_items, [](const Item& a, const Item& b) {
    return std::tuple(b.fast, b.waited, a.pid) < std::tuple(a.fast, a.waited, b.pid);
  });
}

// All of an item, if there are places for it.
void GroupPlanner::take(const Item& item, std::size_t places) {
  const std::size_t before = m_picked.size();
  const auto want = [this](unsigned char pid) {
    if (!isPicked(pid)) {
      m_picked.push_back(find(pid)->length);
    }
  };
  if (item.block != nullptr) {
    std::ranges::for_each(*item.block, want);
  } else {
    want(item.pid);
  }
  if (m_picked.size() > places) {
    m_picked.resize(before);
  }
}

void GroupPlanner::count() {
  for (Member& member : m_members) {
    member.waited = isPicked(member.pid) ? 0 : member.waited + 1;
  }
  for (auto& [block, waited] : m_blocks) {
    const bool together = std::ranges::all_of(block, [this](unsigned char pid) { return isPicked(pid); });
    waited = together ? 0 : waited + 1;
  }
}

void GroupPlanner::reportSingle(unsigned char pid, bool answered, std::size_t length) {
  Member* const member = find(pid);
  if (member == nullptr) {
    return;
  }
  member->failures = answered ? 0 : member->failures + 1;
  if (answered && member->standing == Standing::Unproven) {
    member->length = {pid, length, true};
    member->standing = length == 0         ? Standing::Alone
                       : member->suspected ? Standing::Suspect
                                           : Standing::Candidate;
  }
  m_declined = m_declined || (m_failedGroups != 0 && std::ranges::all_of(m_members, [](const Member& one) {
                                return one.standing == Standing::Alone;
                              }));
}

// A unit that answers one of several cuts the request short.
void GroupPlanner::reportGroup(std::span<const PidLength> asked, std::span<const unsigned char> read) {
  if (read.size() < 2) {
    reportFailure(asked);
    return;
  }
  m_works = true;
  m_failedGroups = 0;
  for (const PidLength& one : asked) {
    Member* const member = find(one.pid);
    if (member == nullptr) {
      continue;
    }
    if (std::ranges::find(read, one.pid) != read.end()) {
      member->standing = Standing::Good;
      member->suspected = false;
      member->length.proven = true;
      member->misses = 0;
    } else if (++member->misses >= MostMisses) {
      member->standing = Standing::Alone;
    }
  }
}

void GroupPlanner::reportFailure(std::span<const PidLength> asked) {
  ++m_failedGroups;
  if (m_failedGroups >= (m_works ? MostLaterFailures : MostFailures)) {
    m_declined = true;
    return;
  }
  Member* suspect = nullptr;
  std::size_t good = 0;
  for (const PidLength& one : asked) {
    if (Member* const member = find(one.pid)) {
      good += member->standing == Standing::Good ? 1 : 0;
      suspect = member->standing == Standing::Suspect ? member : suspect;
    }
  }
  if (good == asked.size() && m_failedGroups <= NoiseFailures) {
    return;
  }
  // Beside one that is beyond suspicion, the suspect has spoiled the group.
  if (suspect != nullptr && good + 1 == asked.size()) {
    suspect->standing = Standing::Alone;
    m_failedGroups = 0;
    return;
  }
  for (const PidLength& one : asked) {
    if (Member* const member = find(one.pid)) {
      member->standing = Standing::Unproven;
      member->suspected = true;
    }
  }
}

}  // namespace obd
