#include "parameters/calibrationitems.h"

#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

bool CalibrationItems::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < DataPosition + m_itemLength) {
    return refuseByteCount(source(), 3, reply.size());
  }
  const std::size_t count = reply[CountPosition];
  tavrix::debugStream << "Number of items: " << count;
  std::vector<std::string> items;
  for (std::size_t item = 0; item < count; ++item) {
    const std::size_t position = DataPosition + m_itemLength * item;
    if (reply.size() >= position + m_itemLength) {
      items.push_back(itemText(reply.data() + position));
    } else {
      refuseByteCount(source(), 3, reply.size());
    }
  }
  records().set(ecuId, std::move(items));
  return true;
}

std::string withoutZeros(const unsigned char* first, std::size_t size) {
  std::string text(first, first + size);
  std::erase(text, '\0');
  return text;
}

}  // namespace obd
