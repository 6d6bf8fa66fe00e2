# kv_header_functions(HEADER OUT): the names of the functions that the C
# header HEADER declares, one declaration starting each line (a return type,
# then the name and its opening parenthesis; typedefs aside). The client
# library's exports and its Debian symbols file are both made from them, so
# that the header stays their one source.
function(kv_header_functions header out)
  file(STRINGS ${header} lines REGEX "^[a-z][a-z_ ]*[ *][A-Za-z_][A-Za-z0-9_]*\\(")
  set(names "")
  foreach(line IN LISTS lines)
    if(line MATCHES "^typedef")
      continue()
    endif()
    string(REGEX REPLACE "^[a-z][a-z_ ]*[ *]([A-Za-z_][A-Za-z0-9_]*)\\(.*" "\\1" name "${line}")
    list(APPEND names ${name})
  endforeach()
  if(NOT names)
    message(FATAL_ERROR "${header} declares no function that kv_header_functions can read")
  endif()
  set(${out} ${names} PARENT_SCOPE)
endfunction()
