#include "dtc/dtcdatamodel.h"

#include "dtc/dtctable.h"

namespace obd {

DtcDataModel::DtcDataModel(const std::string& code, const std::string& description, const std::string& system,
                           const std::string& manufacturer)
    : m_texts(std::make_shared<const std::string>(code + description + system + manufacturer)) {
  std::string_view rest = *m_texts;
  const auto take = [&rest](std::size_t length) {
    const std::string_view text = rest.substr(0, length);
    rest.remove_prefix(length);
    return text;
  };
  m_code = take(code.size());
  m_description = take(description.size());
  m_system = take(system.size());
  m_manufacturer = take(manufacturer.size());
}

DtcDataModel::DtcDataModel(const std::string& code, const std::string& description, const std::string& system)
    : DtcDataModel(code, description, system, std::string(ManufacturerTexts[0])) {}

}  // namespace obd
