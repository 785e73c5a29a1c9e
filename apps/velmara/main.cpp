// velmara: vehicle diagnostics on the command line, on the interface of libobd.so.

#include <fcntl.h>
#include <unistd.h>

#include "commandline.h"

namespace {

// Whoever starts the program may have closed its standard files. What it opened itself would take their
// numbers then, and be read and written as such. Input ends at once, and what is said on standard error goes
// nowhere; results that cannot be printed remain an error, so that file is open the wrong way round.
void openMissingStandardFiles() {
  constexpr int Ways[] = {O_RDONLY, O_RDONLY, O_WRONLY};
  for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
    if (::fcntl(file, F_GETFD) < 0 && ::open("/dev/null", Ways[file]) != file) {
      ::_exit(1);  // without a null device nothing can be said
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  openMissingStandardFiles();
  return velmara::runProgram(argc, argv);
}
