#include "serve/watchlist.h"

#include <set>
#include <utility>

namespace velmara {

WatchList::Wish WatchList::add(std::vector<int> parameters) {
  const std::lock_guard guard(m_mutex);
  auto wish = std::make_shared<const std::vector<int>>(parameters);
  m_entries.push_back({wish, std::move(parameters), Clock::now()});
  return wish;
}

std::vector<int> WatchList::wanted(Clock::time_point now) {
  const std::lock_guard guard(m_mutex);
  std::set<int> all;
  for (auto entry = m_entries.begin(); entry != m_entries.end();) {
    if (!entry->wish.expired()) {
      entry->seen = now;
    }
    if (now - entry->seen > Grace) {
      entry = m_entries.erase(entry);
    } else {
      all.insert(entry->parameters.begin(), entry->parameters.end());
      ++entry;
    }
  }
  return {all.begin(), all.end()};
}

}  // namespace velmara
