#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../core/fakevehicle.h"

using fake::bytes;
using fake::Bytes;
using obd::ObdProtocol;
using testing::ElementsAre;
using testing::IsEmpty;

/// Tests of records: a log, two control units on CAN and one on an older protocol.
class Records : public testing::Test {
 protected:
  /// What a query asks, as hexadecimal text.
  static std::string request(const obd::ObdParameter& query) {
    fake::Bytes data = fake::bytes("FFFF");
    query.requestData(data);
    return fake::hex(data);
  }

  fake::Log log;
  std::shared_ptr<obd::IEcu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  std::shared_ptr<obd::IEcu> second = std::make_shared<fake::Ecu>(0x7E9);
  std::shared_ptr<obd::IEcu> older = std::make_shared<fake::Ecu>(0x10, obd::ObdProtocol::Iso9141);
};
