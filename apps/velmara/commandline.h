#pragma once

namespace velmara {

/// The whole program. Gives an `ExitCode` as a number.
int runProgram(int argc, char** argv);

}  // namespace velmara
