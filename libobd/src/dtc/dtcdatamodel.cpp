#include "dtc/dtcdatamodel.h"

#include "dtc/dtctable.h"

namespace obd {

DtcDataModel::DtcDataModel(const std::string& code, const std::string& description, const std::string& system,
                           const std::string& manufacturer)
    : m_code(code), m_description(description), m_system(system), m_manufacturer(manufacturer) {}

DtcDataModel::DtcDataModel(const std::string& code, const std::string& description, const std::string& system)
    : DtcDataModel(code, description, system, std::string(ManufacturerTexts[0])) {}

}  // namespace obd
