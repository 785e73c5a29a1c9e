#include "core/obdparameter.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include <tavrix/classicstream.h>
#include <tavrix/tracelog.h>

#include "core/saeframes.h"

namespace obd {

namespace {

using tavrix::ClassicStream;
using tavrix::debugStream;
using tavrix::LogStream;

constexpr const char* Source = "src\\obdparameter";
constexpr unsigned char NegativeResponse = 0x7F;
constexpr int UnknownNack = 121;

void appendHex(std::ostream& stream, const std::vector<unsigned char>& bytes) {
  stream << std::hex;
  for (const unsigned char byte : bytes) {
    stream << " 0x" << static_cast<unsigned int>(byte);
  }
}

std::string describeExchange(const std::vector<unsigned char>& request, const ResponseMap& responses) {
  ClassicStream text;
  text << "request:";
  appendHex(text, request);
  for (const auto& [id, bytes] : responses) {
    text << std::endl << ", response from 0x" << id << ":";
    appendHex(text, bytes);
  }
  return text.str();
}

int nackOf(const std::vector<unsigned char>& data) {
  return data.size() < 3 ? UnknownNack : data[2];
}

bool matchesAt(const std::vector<unsigned char>& signature, const std::vector<unsigned char>& data,
               std::size_t offset) {
  return data.size() >= offset && data.size() - offset >= signature.size() &&
         std::equal(signature.begin(), signature.end(), data.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

std::string NackToString(int nack) {
  constexpr std::pair<int, const char*> Texts[] = {
      {NackAcknowledged, "Acknowledged"},
      {NackGeneralReject, "General reject"},
      {NackServiceNotSupported, "Service not supported"},
      {NackSubfunctionNotSupported, "Subfunction not supported"},
      {NackBusy, "Busy"},
      {NackConditionsNotCorrect, "Conditions not correct"},
      {NackResponsePending, "Response pending"},
  };
  const auto* const found = std::ranges::find(Texts, nack, &std::pair<int, const char*>::first);
  return found == std::end(Texts) ? "Unknown" : found->second;
}

ObdParameter& ObdParameter::operator=(const ObdParameter& other) {
  m_request = other.m_request;
  m_nack = other.m_nack.load();
  m_replies = other.m_replies;
  return *this;
}

IQuery::UpdateStatus ObdParameter::update(const std::shared_ptr<IObdProxy>& proxy) {
  m_nack = 0;
  m_replies.resetAll();
  std::vector<unsigned char> request;
  ResponseMap responses;
  try {
    getRequestData(request);
    const int result = proxy->sendRequest(request, responses, timeout());
    if (result == RequestRefused) {
      return AdapterRefused;
    }
    if (result != RequestAnswered) {
      return NoData;
    }
    UpdateStatus status = NoData;
    for (const auto& [id, bytes] : responses) {
      const std::shared_ptr<IEcu> ecu = proxy->ecu(static_cast<unsigned int>(id));
      if (!ecu) {
        LogStream(Source, __LINE__, 2) << "No such ECU: " << id;
        continue;
      }
      if (setResponseData(ecu, bytes)) {
        status = Updated;
      } else {
        LogStream(Source, __LINE__, 2) << "Invalid data received for 0x" << std::hex << id;
      }
    }
    return status;
  } catch (...) {
    LogStream(Source, __LINE__, 3) << "Failed ObdParameter::update (" << describeExchange(request, responses)
                                   << ")";
    throw;
  }
}

bool ObdParameter::setResponseData(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  if (!data.empty() && data.front() == NegativeResponse) {
    m_replies.set(ecu->id(), {UnitReply::Refused, nackOf(data)});
    setNack(ecu, data);
    return false;
  }
  m_replies.set(ecu->id(), {UnitReply::Unusable});
  getSignature(m_signature);
  if (!matchesAt(m_signature, data, 0)) {
    LogStream(Source, __LINE__, 2) << "Signature mismatch";
    return false;
  }
  if (!fromBytes(ecu, data)) {
    return false;
  }
  m_replies.set(ecu->id(), {UnitReply::Accepted});
  return true;
}

void ObdParameter::setNack(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  ClassicStream text;
  appendHex(text, data);
  LogStream(Source, __LINE__, 2) << "ECU with ID " << ecu->id() << " received NACK: " << text.str();
  m_nack = nackOf(data);
}

int ObdParameter::findSaeChecksumLength(const std::vector<unsigned char>& data) const {
  if (data.size() % SaeFrames::FrameSize == 0) {
    debugStream << "Guess no checksum in use";
    if (verifySaeSignatures(data, 0)) {
      return 0;
    }
  }
  if (data.size() % (SaeFrames::FrameSize + 1) != 0) {
    return -1;
  }
  debugStream << "Guess checksum in use";
  return verifySaeSignatures(data, 1) ? 1 : -1;
}

bool ObdParameter::verifySaeSignatures(const std::vector<unsigned char>& data,
                                       unsigned long long checksumLength) const {
  std::vector<unsigned char> signature;
  getSignature(signature);
  if (data.size() < signature.size()) {
    return false;
  }
  // A frame of the signature and nothing else is taken as it stands.
  if (data.size() == signature.size()) {
    return true;
  }
  const std::size_t end = data.size() - signature.size();
  std::size_t offset = 0;
  do {
    if (!matchesAt(signature, data, offset)) {
      return false;
    }
    offset += SaeFrames::FrameSize + static_cast<std::size_t>(checksumLength);
  } while (offset < end);
  return true;
}

}  // namespace obd
