# Where an install puts each piece, relative to the prefix (GNUInstallDirs),
# and where the build tree puts the pieces that programs look for. Programs
# find each other and their plug-ins by these folders' paths relative to
# themselves (kv_place), so every folder here must stay relative.

# Debian keeps architecture-dependent libraries in a multiarch folder
# (lib/x86_64-linux-gnu), under /usr and /usr/local alike: the loader and
# pkg-config look there. GNUInstallDirs picks it only for the prefix /usr,
# which is fixed when the build is configured; an install may go elsewhere,
# so the project picks it for every prefix unless told otherwise. It looks
# once per build folder (KV_LIBDIR_CHECKED); the "lib" that GNUInstallDirs
# chose in a build folder configured before is not a choice of the user's.
if(NOT KV_LIBDIR_CHECKED AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version)
  get_property(kv_libdir_help CACHE CMAKE_INSTALL_LIBDIR PROPERTY HELPSTRING)
  if(NOT DEFINED CMAKE_INSTALL_LIBDIR OR kv_libdir_help STREQUAL "Object code libraries (lib)")
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE}
        CACHE PATH "Object code libraries (lib/<multiarch> on Debian)" FORCE)
  endif()
endif()
set(KV_LIBDIR_CHECKED ON CACHE INTERNAL "The library folder was chosen (KvInstallDirs.cmake)")
include(GNUInstallDirs)

# The project's own libraries are private (their names, such as libdlog.so,
# would clash in the system's library folder); only the client library of
# the accessory service is public, in CMAKE_INSTALL_LIBDIR.
set(KV_INSTALL_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/kv)
set(KV_INSTALL_PLUGINDIR ${KV_INSTALL_PRIVATE_LIBDIR}/plugins)
set(KV_INSTALL_PAGE_EXTENSIONDIR ${KV_INSTALL_PRIVATE_LIBDIR}/page-extension)
# The accessory daemon is started by kv-accessory or by systemd, not typed.
set(KV_INSTALL_DAEMONDIR ${CMAKE_INSTALL_LIBEXECDIR}/kv)
set(KV_INSTALL_DATADIR ${CMAKE_INSTALL_DATADIR}/kv)
set(KV_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(KV_INSTALL_SYSTEMD_SYSTEMDIR lib/systemd/system)
set(KV_INSTALL_SYSTEMD_USERDIR lib/systemd/user)

foreach(folder IN ITEMS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_LIBEXECDIR
                        CMAKE_INSTALL_DATADIR CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_MANDIR)
  if(IS_ABSOLUTE "${${folder}}")
    message(FATAL_ERROR "${folder} must be relative to the prefix (it is ${${folder}}): "
                        "installed programs find each other by relative paths")
  endif()
endforeach()

# The build tree's folders of the plug-ins and of the page extension.
set(KV_BUILD_PLUGINDIR ${CMAKE_BINARY_DIR}/plugins)
set(KV_BUILD_PAGE_EXTENSIONDIR ${CMAKE_BINARY_DIR}/page-extension)
