#include "dispatch/callback.h"

#include <utility>

#include "dispatch/dispatcher.h"

namespace obd {

bool Callback::schedule(std::function<void()> function) {
  {
    const std::lock_guard guard(m_mutex);
    m_function.swap(function);
  }
  return Dispatcher::getInstance().scheduleUiTask(weak_from_this());
}

void Callback::notify() {
  std::function<void()> function;
  {
    const std::lock_guard guard(m_mutex);
    function = m_function;
  }
  if (function) {
    function();
  }
}

}  // namespace obd
