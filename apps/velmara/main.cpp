// velmara: vehicle diagnostics on the command line, on the interface of libobd.so.

#include "commandline.h"

int main(int argc, char** argv) {
  return velmara::runProgram(argc, argv);
}
