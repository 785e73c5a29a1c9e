#pragma once

namespace velmara {

/// What the program changes of its terminal, so that each way to end can give it back: any thread may.
class TerminalMode {
 public:
  /// Lets standard input give each key as it is typed, unseen. False if it is no terminal.
  static bool setRaw();
  /// Ends `setRaw`.
  static void restore();

  /// Whether standard output is a terminal and gets colors.
  static void setColored(bool colored);
  /// Back to the terminal's own colors, where a text may have been cut off.
  static void resetColors();
};

}  // namespace velmara
