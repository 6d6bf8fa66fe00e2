# Writes a C++ source file that holds a text file as a string constant, so
# that a library carries the text and needs no source tree at run time.
#   cmake -DINPUT=FILE -DOUTPUT=FILE.cpp -DNAMESPACE=A::B -DSYMBOL=name -P embed-text.cmake
# The file defines `const char* NAMESPACE::SYMBOL()` returning the text.
foreach(variable IN ITEMS INPUT OUTPUT NAMESPACE SYMBOL)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "embed-text.cmake: ${variable} is not set")
  endif()
endforeach()

file(READ "${INPUT}" text)
set(delimiter "kv_embedded_text")
string(FIND "${text}" ")${delimiter}\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "embed-text.cmake: ${INPUT} holds the raw-string delimiter")
endif()

get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.new"
     "// Generated from ${name} by embed-text.cmake at build time; do not edit.\n"
     "namespace ${NAMESPACE} {\n"
     "const char* ${SYMBOL}() {\n"
     "    return R\"${delimiter}(${text})${delimiter}\";\n"
     "}\n"
     "}  // namespace ${NAMESPACE}\n")
# Only a changed text touches the output, so that nothing rebuilds needlessly.
file(COPY_FILE "${OUTPUT}.new" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.new")
