# The probes are Python files of this form:
#
#   """What it does."""
#   import ...               one line
#
#   # Run alone:
#   ...                      what makes the file a program by itself; not embedded
#   # The probe:
#   ...                      the body
#
# answer.py, which they share, has the same form without the part for running alone.

# read_probe(FILE IMPORTS BODY) takes a file of that form apart; both pieces end in a line feed.
function(read_probe file imports_name body_name)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
  file(READ "${file}" text)
  set(mark "\n# The probe:\n")
  string(FIND "${text}" "${mark}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${file} has no line \"# The probe:\"")
  endif()
  string(LENGTH "${mark}" length)
  math(EXPR after "${at} + ${length}")
  string(SUBSTRING "${text}" ${after} -1 body)
  string(SUBSTRING "${text}" 0 ${at} head)
  string(REGEX REPLACE "\n# Run alone:\n.*" "" head "\n${head}")
  if(NOT head MATCHES "\nimport " OR head MATCHES "\nimport [^\n]*\n(.*\n)?(import|from) ")
    message(FATAL_ERROR "${file} has not exactly one import line before its marks")
  endif()
  string(REGEX MATCH "\nimport [^\n]*" imports "${head}")
  string(SUBSTRING "${imports}" 1 -1 imports)
  set(${imports_name} "${imports}" PARENT_SCOPE)
  set(${body_name} "${body}" PARENT_SCOPE)
endfunction()

# embed_probes(OUTPUT FOLDER EXCHANGE...) writes the header OUTPUT, which holds the probe
# FOLDER/EXCHANGE.py of each EXCHANGE with FOLDER/answer.py before it, as an import line and a body.
function(embed_probes output folder)
  read_probe("${folder}/answer.py" shared_imports shared_body)
  set(PROBES "")
  foreach(exchange IN LISTS ARGN)
    set(file "${folder}/${exchange}.py")
    read_probe("${file}" imports body)
    file(STRINGS "${file}" alone REGEX "^# Run alone:$")
    if(alone STREQUAL "")
      message(FATAL_ERROR "${file} has no line \"# Run alone:\"")
    endif()
    string(APPEND PROBES
      "inline constexpr Script ${exchange} = {\n"
      "    .imports = R\"py(${shared_imports}; ${imports}\n)py\",\n"
      "    .body = R\"py(${shared_body}\n\n${body})py\",\n"
      "};\n")
  endforeach()
  configure_file("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/probe_scripts.hpp.in" "${output}" @ONLY)
endfunction()
