#include "parameters/obdmonitortestitem.h"

#include <utility>

namespace obd {

std::vector<std::shared_ptr<IMonitorTestItem>> ObdMonitorTestItem::items(UnitSystem system) const {
  std::vector<std::shared_ptr<IMonitorTestItem>> items;
  items.reserve(m_parsers.size());
  for (const std::shared_ptr<IMonitorTestItemParser>& parser : m_parsers) {
    if (std::shared_ptr<IMonitorTestItem> item = parser->parse(system)) {
      items.push_back(std::move(item));
    }
  }
  return items;
}

}  // namespace obd
