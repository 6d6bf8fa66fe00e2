# kv_place(TARGET NAME BUILT PATH INSTALLED_FROM FOLDER INSTALLED PATH)
#
# Tells the sources of TARGET where a piece it looks for lies, relative to
# the folder of TARGET's own file: BUILT is the piece's absolute path in the
# build tree (the relative path from TARGET's output folder is computed when
# the build is generated), INSTALLED the piece's install path and
# INSTALLED_FROM the folder TARGET is installed in (both relative to the
# prefix). The sources get NAME_IN_BUILD_TREE and NAME_INSTALLED, which
# KV_LAYOUT_PLACE(NAME) of <kv-layout/Layout.h> puts together. No absolute
# path is compiled in.
function(kv_place target name)
  cmake_parse_arguments(PARSE_ARGV 2 place "" "BUILT;INSTALLED_FROM;INSTALLED" "")
  if(NOT place_BUILT OR NOT place_INSTALLED_FROM OR NOT place_INSTALLED)
    message(FATAL_ERROR "kv_place(${target} ${name}) needs BUILT, INSTALLED_FROM and INSTALLED")
  endif()
  file(RELATIVE_PATH installed /${place_INSTALLED_FROM} /${place_INSTALLED})
  if(installed STREQUAL "")
    set(installed ".")
  endif()
  set(built "$<PATH:RELATIVE_PATH,${place_BUILT},$<TARGET_FILE_DIR:${target}>>")
  target_compile_definitions(${target} PRIVATE ${name}_IN_BUILD_TREE="${built}"
                                               ${name}_INSTALLED="${installed}")
  target_link_libraries(${target} PRIVATE kv-layout)
endfunction()
