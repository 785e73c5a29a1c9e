# Turns files into one source file: a constant text for each, named after it ("report.css": ReportCss).
set(texts "")
foreach(file IN LISTS FILES)
  get_filename_component(stem ${file} NAME_WE)
  get_filename_component(kind ${file} LAST_EXT)
  string(SUBSTRING ${kind} 1 -1 kind)
  set(name "")
  foreach(word IN ITEMS ${stem} ${kind})
    string(SUBSTRING ${word} 0 1 initial)
    string(TOUPPER ${initial} initial)
    string(SUBSTRING ${word} 1 -1 rest)
    string(APPEND name ${initial}${rest})
  endforeach()
  file(READ ${file} text)
  string(APPEND texts "const std::string_view ${name} = R\"embedded(${text})embedded\";\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"embedded.h\"

namespace velmara {

${texts}
}  // namespace velmara
")
