#pragma once

#include <map>
#include <set>
#include <span>
#include <vector>

#include "powertrain/groupreply.h"

namespace obd {

/// Decides which PIDs go into the next request, and learns from the replies which of them the control unit
/// answers together.
///
/// PIDs go into groups of up to six. One whose length is not the same in all vehicles is asked for alone
/// first; that of the others counts as proven when a group has come back complete and as it was asked for.
/// What changes fast comes in every request: where more than six are wanted, the slow ones (temperatures,
/// counters, levels) share the places that the fast ones leave, one at least, in turns. Where there are more
/// than six fast ones, they take turns as well.
///
/// After a group that was refused, cut short or not to be taken apart, its members have to answer alone
/// again, and then beside one that is beyond suspicion, or beside each other; who fails there is asked for
/// alone from then on, and so is who is missing from two groups in a row. A unit declines groups if one after
/// the other fails while the members answer alone: five where none ever came right, ten otherwise.
class GroupPlanner {
 public:
  using Pids = std::set<unsigned char>;

  /// Has a PID polled.
  void add(unsigned char pid);
  void remove(unsigned char pid);
  /// Whether a PID goes into groups at present.
  bool isGrouped(unsigned char pid) const;
  /// What calculated values are made of: PIDs of which each set shall stand in one request, in turns with all
  /// that changes fast. They are asked for even if nobody else wants them.
  void keepTogether(const std::set<Pids>& blocks);

  /// The PIDs of the next request, one to six, with the lengths that they have in a group; none if there are
  /// no members. Valid until the next call.
  std::span<const PidLength> next();

  /// What came of a request for a single PID: `length` as by `ownLength`, and whether it was answered at all.
  void reportSingle(unsigned char pid, bool answered, std::size_t length);
  /// What came of a group: the PIDs that were in the reply; none if there was no reply, a refusal, or one
  /// that could not be taken apart.
  void reportGroup(std::span<const PidLength> asked, std::span<const unsigned char> read);

  /// Whether the unit has shown that it does not answer groups.
  bool declined() const { return m_declined; }

 private:
  enum class Standing {
    Unproven,   // has to answer alone first
    Candidate,  // has been in no group
    Suspect,    // was in a group that failed
    Good,       // has answered in a group
    Alone       // is asked for alone for good
  };

  struct Member {
    unsigned char pid = 0;
    bool fast = false;
    bool shown = false;  // or else only needed for a calculated value
    Standing standing = Standing::Unproven;
    bool suspected = false;    // will be a suspect once it has answered alone
    PidLength length{};        // in a group
    unsigned failures = 0;     // alone, in a row
    unsigned misses = 0;       // in groups, in a row
    unsigned tests = 0;        // as a suspect
    unsigned long waited = 0;  // requests since it was asked for

    bool isGrouped() const { return standing == Standing::Candidate || standing == Standing::Good; }
  };

  // What wants a place in a group: a PID, or several at once.
  struct Item {
    bool fast = false;
    unsigned long waited = 0;
    const Pids* block = nullptr;
    unsigned char pid = 0;
  };

  Member* find(unsigned char pid);
  bool isBlocked(unsigned char pid) const;
  bool isPicked(unsigned char pid) const;
  bool pickSingle(bool (*isDue)(const Member& member));
  bool pickTest();
  Member* leastTested(const Member* but);
  bool pickGroup();
  void collectItems();
  void take(const Item& item, std::size_t places);
  void count();
  void reportFailure(std::span<const PidLength> asked);

  std::vector<Member> m_members;           // in the order of adding
  std::map<Pids, unsigned long> m_blocks;  // with the requests since each was last together
  std::vector<PidLength> m_picked;
  std::vector<Item> m_items;
  unsigned m_requests = 0;
  unsigned m_failedGroups = 0;  // in a row
  bool m_lastSingle = false;
  bool m_works = false;
  bool m_declined = false;
};

}  // namespace obd
