# Turns the vehicle files into one source file: a sorted table of names and texts. A name is the path below the
# folder without the extension.
list(SORT FILES)
set(rows "")
foreach(file IN LISTS FILES)
  file(RELATIVE_PATH name ${FOLDER} ${file})
  string(REGEX REPLACE "[.]vehicle$" "" name ${name})
  file(READ ${file} text)
  string(APPEND rows "    {\"${name}\", R\"vehicle(${text})vehicle\"},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"builtinvehicles.h\"

namespace simulator {

const std::vector<BuiltinVehicle>& builtinVehicles() {
  static const std::vector<BuiltinVehicle> vehicles = {
${rows}  };
  return vehicles;
}

}  // namespace simulator
")
