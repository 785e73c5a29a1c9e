#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "core/ecumap.h"
#include "core/iquery.h"
#include "core/request.h"
#include "core/unitreply.h"

namespace obd {

/// Negative response codes (ISO 14229-1, SAE J1979).
enum Nack : int {
  NackAcknowledged = 0x00,
  NackGeneralReject = 0x10,
  NackServiceNotSupported = 0x11,
  NackSubfunctionNotSupported = 0x12,
  NackBusy = 0x21,
  NackConditionsNotCorrect = 0x22,
  NackResponsePending = 0x78
};

/// The text of a negative response code, "Unknown" for one that is not in `Nack`.
VELMARA_EXPORT std::string NackToString(int nack);

/// A query made of one request: builds the request bytes, walks the replies of all control units, checks each
/// for a negative response and for its signature, and hands it to the subclass, which keeps values by control
/// unit.
///
/// `update`, `setResponseData` and `clear` are called by one thread at a time, the worker as a rule.
/// Everything else public may be called from any thread meanwhile: what a query is does not change, and what
/// it keeps is guarded. This holds for all queries.
class VELMARA_EXPORT ObdParameter : public IQuery {
 public:
  ObdParameter(const ObdParameter& other)
      : IQuery(other), m_request(other.m_request), m_nack(other.m_nack.load()), m_replies(other.m_replies) {}
  ObdParameter& operator=(const ObdParameter& other);

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  void clear() override {}

  /// Replaces `data` by the bytes of the request.
  virtual void requestData(std::vector<unsigned char>& data) const { getRequestData(data); }
  /// Takes the reply of one control unit. True if it was accepted.
  virtual bool setResponseData(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data);
  /// Milliseconds that the proxy may wait for replies.
  virtual unsigned int timeout() const { return 1500; }
  /// The last negative response code of the latest update; 0 for none, 121 for one without a code.
  virtual int nack() const { return m_nack; }

 protected:
  explicit ObdParameter(const Request& request = Request()) : m_request(request) {}

  /// Replaces `data` by the request bytes.
  virtual void getRequestData(std::vector<unsigned char>& data) const { data = m_request.bytes(); }
  /// Replaces `data` by the bytes with which every acceptable reply begins.
  virtual void getSignature(std::vector<unsigned char>& data) const { m_request.getSignature(data); }
  /// Digests a reply, signature included. True if it was usable.
  virtual bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) = 0;

 public:
  /// What came of a control unit to the latest update.
  virtual UnitReply reply(const IEcu& ecu) const { return m_replies.get(ecu.id()); }

 protected:
  /// Notes and logs a negative response.
  void setNack(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data);
  /// Checksum bytes behind each seven-byte frame of a reply from before CAN: 0, 1, or -1 if neither fits.
  int findSaeChecksumLength(const std::vector<unsigned char>& data) const;
  /// Whether `data` is a train of frames of 7 + `checksumLength` bytes that each begin with the signature.
  bool verifySaeSignatures(const std::vector<unsigned char>& data, unsigned long long checksumLength) const;

 private:
  Request m_request;
  std::atomic<int> m_nack{0};
  std::vector<unsigned char> m_signature;  // kept for its memory
  EcuMap<UnitReply> m_replies;
};

}  // namespace obd
