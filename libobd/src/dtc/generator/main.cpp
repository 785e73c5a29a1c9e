// velmara-dtcgen DATA-FOLDER TABLE.cpp: checks the trouble-code rows and turns them into one constant table.

#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

#include "dtc/generator/dtcgenerator.h"

namespace {

// A file that is already right stays untouched, so that nothing is compiled again.
void writeIfChanged(const std::string& path, const std::string& content) {
  std::ifstream old(path, std::ios::binary);
  if (std::ostringstream there; old && there << old.rdbuf() && there.str() == content) {
    return;
  }
  std::ofstream out(path, std::ios::binary);
  out << content;
  out.close();
  if (!out) {
    throw std::runtime_error("cannot write " + path);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 3) {
      std::cerr << "Usage: velmara-dtcgen DATA-FOLDER TABLE.cpp\n";
      return 2;
    }
    std::ostringstream table;
    dtcgen::writeTable(dtcgen::dataOf(dtcgen::readRows(argv[1])), table);
    writeIfChanged(argv[2], table.str());
    return 0;
  } catch (const std::exception& error) {
    std::cerr << argv[1] << '/' << error.what() << '\n';
    return 1;
  }
}
