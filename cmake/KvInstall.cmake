# Installing the project's targets: into which package part (CPack
# component) each goes, and the run paths that let an installed file find
# the project's libraries relative to itself, wherever the prefix is.

# The package parts. The platform's libraries and tools go with the
# accessory service, which every other part needs.
set(KV_COMPONENT_SERVICE accessory)
set(KV_COMPONENT_PLATFORM accessory)
set(KV_COMPONENT_CLIENT client)
set(KV_COMPONENT_CLIENT_DEV client-dev)
set(KV_COMPONENT_RUNTIME runtime)
set(KV_COMPONENT_SAMPLES samples)

# kv_install_rpath(TARGET FOLDER [PUBLIC_LIBRARIES])
#
# TARGET, installed in FOLDER, finds the project's private libraries
# relative to its own place ($ORIGIN); with PUBLIC_LIBRARIES also the public
# ones (the client library). The build tree keeps its own absolute run paths.
function(kv_install_rpath target folder)
  cmake_parse_arguments(PARSE_ARGV 2 arg "PUBLIC_LIBRARIES" "" "")
  set(libraries ${KV_INSTALL_PRIVATE_LIBDIR})
  if(arg_PUBLIC_LIBRARIES)
    list(APPEND libraries ${CMAKE_INSTALL_LIBDIR})
  endif()
  set(rpath "")
  foreach(library_folder IN LISTS libraries)
    file(RELATIVE_PATH relative /${folder} /${library_folder})
    if(relative STREQUAL "")
      list(APPEND rpath "$ORIGIN")
    else()
      list(APPEND rpath "$ORIGIN/${relative}")
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "${rpath}")
endfunction()

# kv_install(TARGET... COMPONENT NAME [DESTINATION FOLDER] [PUBLIC_LIBRARIES])
#
# Installs programs, private libraries and loadable modules: into FOLDER
# (default: the programs' folder), with the run paths of kv_install_rpath.
function(kv_install)
  cmake_parse_arguments(PARSE_ARGV 0 arg "PUBLIC_LIBRARIES" "COMPONENT;DESTINATION" "")
  if(NOT arg_COMPONENT)
    message(FATAL_ERROR "kv_install(${arg_UNPARSED_ARGUMENTS}) needs a COMPONENT")
  endif()
  if(NOT arg_DESTINATION)
    set(arg_DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
  set(public "")
  if(arg_PUBLIC_LIBRARIES)
    set(public PUBLIC_LIBRARIES)
  endif()
  foreach(target IN LISTS arg_UNPARSED_ARGUMENTS)
    kv_install_rpath(${target} ${arg_DESTINATION} ${public})
  endforeach()
  install(TARGETS ${arg_UNPARSED_ARGUMENTS}
          RUNTIME DESTINATION ${arg_DESTINATION} COMPONENT ${arg_COMPONENT}
          LIBRARY DESTINATION ${arg_DESTINATION} COMPONENT ${arg_COMPONENT})
endfunction()

# kv_install_private_library(TARGET...): the project's own shared libraries,
# unversioned, in its private library folder, with the platform.
function(kv_install_private_library)
  kv_install(${ARGN} COMPONENT ${KV_COMPONENT_PLATFORM} DESTINATION ${KV_INSTALL_PRIVATE_LIBDIR})
endfunction()
