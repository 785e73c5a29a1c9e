#pragma once

#include <map>
#include <memory>
#include <vector>

#include "core/obdparameter.h"

namespace obd {

/// Asks for one block of supported identifiers (SAE J1979): identifier N of a service reports the 32
/// identifiers N+1 to N+32 as a bitmap, the top bit of the first byte first. An object reads one block; the
/// chain from block to block is the control unit's.
class VELMARA_EXPORT SupportedOids : public ObdParameter {
 public:
  void clear() override;
  unsigned int timeout() const override;

  /// What the block reports for a control unit: 1 to 32, relative to the block, ascending. Empty if it did
  /// not answer.
  std::vector<unsigned char> ids(const IEcu& ecu) const;

 protected:
  /// `service` is the number on the wire; `request` what follows it there and in the signature of the
  /// replies.
  SupportedOids(unsigned char service, std::vector<unsigned char> request);

  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

  /// Where the bitmap begins in a reply.
  virtual int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) = 0;

 private:
  unsigned char m_service;
  std::vector<unsigned char> m_request;
  std::map<unsigned int, std::vector<unsigned char>> m_ids;  // by control unit
};

/// PIDs of current data. The first block may have to wake the bus, so it waits for 11 s.
class VELMARA_EXPORT Service01Oids : public SupportedOids {
 public:
  explicit Service01Oids(unsigned char oid);
  unsigned int timeout() const override;

 protected:
  int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  unsigned char m_oid;
};

/// PIDs of a freeze frame.
class VELMARA_EXPORT Service02Oids : public SupportedOids {
 public:
  Service02Oids(unsigned char oid, unsigned char frame);

 protected:
  int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
};

/// Test identifiers of an oxygen sensor, which is given by its sensor byte. Protocols before CAN only.
class VELMARA_EXPORT Service05Oids : public SupportedOids {
 public:
  Service05Oids(unsigned char tid, unsigned char sensor);

 protected:
  int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
};

/// Monitor or test identifiers of on-board monitoring. Before CAN a filler byte 0xFF stands before the
/// bitmap.
class VELMARA_EXPORT Service06Oids : public SupportedOids {
 public:
  explicit Service06Oids(unsigned char oid);

 protected:
  int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
};

/// Test identifiers of on-board systems. Before CAN a filler byte 0x00 stands before the bitmap, and the
/// request carries five zero bytes.
class VELMARA_EXPORT Service08Oids : public SupportedOids {
 public:
  Service08Oids(unsigned char tid, ObdProtocol protocol);

 protected:
  void getRequestData(std::vector<unsigned char>& data) const override;
  int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  ObdProtocol m_protocol;
};

/// Information types of service 09. Before CAN a message count stands before the bitmap.
class VELMARA_EXPORT Service09Oids : public SupportedOids {
 public:
  explicit Service09Oids(unsigned char oid);

 protected:
  int getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
};

}  // namespace obd
