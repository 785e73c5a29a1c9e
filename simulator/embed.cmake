# Turns the vehicle files into one source file: a sorted table of names and texts.
list(SORT FILES)
set(rows "")
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME_WE)
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
