#pragma once

#include <memory>

#include "dispatch/dispatcher.h"

namespace velmara {

/// An entry that follows questions through the library's queues. They come back in their order, so when it is
/// back, all that was asked before has been told or never will be: what a service says of its own end does
/// not come after a disconnect, and what found a full queue is not told at all.
class Marker : public obd::IDispatchable {
 public:
  /// False if there is no room; try again after a turn of the event loop.
  static bool send(const std::shared_ptr<Marker>& marker) {
    marker->m_away = obd::Dispatcher::getInstance().update(marker);
    return marker->m_away;
  }
  bool isAway() const { return m_away; }

  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}
  void notify() override { m_away = false; }

 private:
  bool m_away = false;  // of the event loop's thread
};

}  // namespace velmara
