#include "parameters/dtcparameter.h"

#include <stdexcept>

#include <tavrix/tracelog.h>

#include "dtc/dtcreader.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr std::size_t CanHeaderSize = 2;
constexpr std::size_t CodeSize = 2;
constexpr const char* InvalidLength = "Invalid length: ";

// Adds the records of all codes in `size` bytes.
void addRecords(std::vector<std::shared_ptr<DtcDataModel>>& codes, const unsigned char* bytes,
                std::size_t size) {
  for (std::size_t i = 0; i + CodeSize <= size; i += CodeSize) {
    const std::string code = troubleCodeText(bytes + i, CodeSize);
    if (!code.empty()) {
      const auto records = DtcReader().getTroubleCodes(code);
      codes.insert(codes.end(), records.begin(), records.end());
    }
  }
}

}  // namespace

std::string troubleCodeText(const unsigned char* bytes, std::size_t size) {
  if (size < CodeSize) {
    throw std::out_of_range("a trouble code has two bytes");
  }
  if ((bytes[0] & 0x0F) == 0 && bytes[1] == 0) {
    return {};
  }
  static constexpr char Systems[] = {'P', 'C', 'B', 'U'};
  static constexpr char Digits[] = "0123456789ABCDEF";
  return {Systems[bytes[0] >> 6], Digits[(bytes[0] >> 4) & 0x03], Digits[bytes[0] & 0x0F],
          Digits[bytes[1] >> 4], Digits[bytes[1] & 0x0F]};
}

DtcParameter::DtcParameter(unsigned char service) : Record(Request(service), "parameters\\dtcparameter") {}

bool DtcParameter::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  // A failed read must leave no old codes.
  records().erase(ecu->id());
  return Record::fromBytes(ecu, data);
}

bool DtcParameter::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < CanHeaderSize) {
    return false;
  }
  const std::size_t size = CodeSize * reply[1];
  if (reply.size() - CanHeaderSize < size) {
    LogStream(source(), __LINE__, 2) << InvalidLength << reply.size();
    return false;
  }
  Codes codes;
  addRecords(codes, reply.data() + CanHeaderSize, size);
  keep(ecuId, std::move(codes));
  return true;
}

bool DtcParameter::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const auto frames = findFrames(reply, 2, InvalidLength);
  if (!frames) {
    return false;
  }
  Codes codes;
  for (std::size_t i = 0; i < frames->count(); ++i) {
    addRecords(codes, (*frames)[i] + 1, SaeFrames::FrameSize - 1);
  }
  keep(ecuId, std::move(codes));
  return true;
}

// A unit without codes has no entry.
void DtcParameter::keep(unsigned int ecuId, Codes codes) {
  if (!codes.empty()) {
    records().set(ecuId, std::move(codes));
  }
}

}  // namespace obd
