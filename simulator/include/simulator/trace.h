#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// One line of a trace: what happened on a link to an adapter. docs/traces.md has the form of the file.
struct TraceEvent {
  enum class Kind {
    Comment,   ///< a line for people
    Sent,      ///< bytes to the adapter
    Received,  ///< bytes from it
    Opened,    ///< the link is open; the text is what people call it
    Failed,    ///< the link could not be opened, and why
    Closed,    ///< this side has closed it
    Lost,      ///< it has ended by itself, and why
    Baud       ///< the port runs at this rate from here on
  };

  Kind kind = Kind::Comment;
  std::uint64_t time = 0;  ///< in microseconds since the trace was begun; never less than in the line before
  std::string text;        ///< bytes as they went, words, or the rate in decimal
};

/// What went over a link, in both directions, with times.
struct Trace {
  std::vector<TraceEvent> events;
  std::string cut;  ///< a sentence if the last line is a part of one, which is left out then

  /// `origin` stands for the file in messages. Throws std::runtime_error with "origin:line: what is wrong".
  static Trace parse(std::string_view text, const std::string& origin);
  /// The same of a file, which may have 256 MiB.
  static Trace load(const std::string& file);

  /// As it stands in a file.
  std::string text() const;
  /// What people called the link when it was first opened; empty if that is not told.
  std::string link() const;
};

/// The line that a trace begins with, and that of an event; both with their end.
std::string traceHead();
std::string traceLine(const TraceEvent& event);

/// One line that was sent, and what came until the next one.
struct TraceExchange {
  std::string request;                ///< as an adapter reads it: upper case, without blanks and its end
  std::uint64_t time = 0;             ///< when it had been sent
  std::vector<std::size_t> received;  ///< the events of the answer
  std::size_t lost = 0;               ///< the event of the link's end, 0 for none
  bool oldRate = false;  ///< the baud rate was changed afterwards, so that the answer may be garbage
};

/// The exchanges of a trace, in their order.
std::vector<TraceExchange> exchangesOf(const Trace& trace);

/// All that came in an exchange.
std::string answerOf(const Trace& trace, const TraceExchange& exchange);

}  // namespace simulator
