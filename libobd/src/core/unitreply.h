#pragma once

namespace obd {

/// What came of one control unit to a query.
struct UnitReply {
  enum Kind : int {
    Nothing = 0,   ///< no answer
    Accepted = 1,  ///< an answer that the query has taken
    Refused = 2,   ///< a negative response
    Unusable = 3   ///< an answer that the query could not use
  };

  Kind kind = Nothing;
  int nack = 0;  ///< the negative response code if refused (see `NackToString`), 121 for one without a code
};

}  // namespace obd
