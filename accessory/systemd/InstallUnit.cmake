# Run at install time (install(CODE) in CMakeLists.txt), when the prefix is
# known: writes the unit with the installed programs' folder into
# KV_UNIT_FOLDER under the prefix. Takes KV_UNIT_TEMPLATE, KV_UNIT_WORK (a
# folder of the build for the written units), KV_UNIT_FOLDER,
# KV_UNIT_BINDIR (relative to the prefix), KV_UNIT_ORDERING and
# KV_UNIT_WANTED_BY.
set(KV_BINDIR "${CMAKE_INSTALL_PREFIX}/${KV_UNIT_BINDIR}")
# One written unit per destination, so that installs into different places
# at the same time (a test's prefix and a package's staging folder) do not
# share it.
string(MD5 destination "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${KV_UNIT_FOLDER}")
set(written "${KV_UNIT_WORK}/${destination}/kv-accessoryd@.service")
configure_file("${KV_UNIT_TEMPLATE}" "${written}" @ONLY)
file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/${KV_UNIT_FOLDER}" TYPE FILE FILES "${written}")
