#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

namespace velmara {

/// Which parameters viewers want to see: each is read once for all of them. Any thread.
class WatchList {
 public:
  using Clock = std::chrono::steady_clock;

  /// A page that is loaded anew, or changes its choice, comes back: what it wanted stays for so long.
  static constexpr std::chrono::seconds Grace{3};

  /// Wants its parameters as long as it lives.
  using Wish = std::shared_ptr<const std::vector<int>>;
  Wish add(std::vector<int> parameters);

  /// All that anybody wants, ascending.
  std::vector<int> wanted(Clock::time_point now = Clock::now());

 private:
  struct Entry {
    std::weak_ptr<const std::vector<int>> wish;
    std::vector<int> parameters;
    Clock::time_point seen;
  };

  std::mutex m_mutex;
  std::list<Entry> m_entries;
};

}  // namespace velmara
