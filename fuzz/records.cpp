// Every parameter and record, given one unit's reply: signature included, in one piece as on CAN or as a
// train of frames as before it. All that a front end can ask of it afterwards is asked.

#include <memory>

#include "core/fakevehicle.h"
#include "dtc/dtcreader.h"
#include "subject.h"
#include "target.h"

namespace {

// The reply's first bytes: the request's, with the service answered.
std::vector<unsigned char> signature(const obd::ObdParameter& query) {
  std::vector<unsigned char> request;
  query.requestData(request);
  request.front() |= 0x40U;
  return request;
}

}  // namespace

FUZZ_TARGET(records) {
  static const bool texts = obd::DtcReader::init();
  fuzz::require(texts, "trouble-code texts are there");
  const unsigned char kind = input.byte();
  const unsigned char id = input.byte();
  const auto protocol = static_cast<obd::ObdProtocol>(input.below(6));
  const unsigned char form = input.byte();
  const fuzz::Subject subject = fuzz::chooseSubject(kind, id, protocol);
  const std::vector<unsigned char> front = signature(*subject.query);
  const std::size_t prefix = std::min<std::size_t>(front.size(), 1U + form % 4U);

  for (unsigned int unit = 0; unit < 2; ++unit) {
    const auto ecu = std::make_shared<fake::Ecu>(0x7E8 + unit, protocol);
    subject.look(ecu);
    std::vector<unsigned char> reply;
    const std::size_t length = unit == 0 ? input.left() / (1U + (form >> 7U)) : input.left();
    std::size_t left = length;
    do {
      if ((form & 0x40U) == 0) {
        reply.insert(reply.end(), front.begin(), front.begin() + static_cast<std::ptrdiff_t>(prefix));
      }
      // A train of frames repeats the signature.
      const std::size_t piece = (form & 0x20U) != 0 ? 7 + (form >> 4U & 1U) - prefix : left;
      const auto bytes = input.bytes(std::min(piece, left));
      reply.insert(reply.end(), bytes.begin(), bytes.end());
      left -= bytes.size();
    } while (left > 0);
    try {
      subject.query->setResponseData(ecu, reply);
    } catch (const std::exception&) {
      // A name's frame out of sequence; `ObdParameter::update` logs it and gives the query up.
    }
    subject.look(ecu);
  }
  subject.query->clear();
  subject.look(std::make_shared<fake::Ecu>(0x7E8, protocol));
}
