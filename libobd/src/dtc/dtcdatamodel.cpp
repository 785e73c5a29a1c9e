#include "dtc/dtcdatamodel.h"

#include <utility>

#include "dtc/dtctable.h"

namespace obd {

DtcDataModel::DtcDataModel(std::string code, std::string description, std::string system,
                           std::string manufacturer)
    : m_code(std::move(code)),
      m_description(std::move(description)),
      m_system(std::move(system)),
      m_manufacturer(std::move(manufacturer)) {}

DtcDataModel::DtcDataModel(std::string code, std::string description, std::string system)
    : DtcDataModel(std::move(code), std::move(description), std::move(system),
                   std::string(ManufacturerTexts[0])) {}

}  // namespace obd
