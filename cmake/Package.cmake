# Debian packages of what is installed, a component each; `make package` makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME nerioswitchtable)
set(CPACK_PACKAGE_CONTACT "The maintainers of NerioSwitchTable <maintainers@nerioswitchtable.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL lib dev tools)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# What commands and libraries need is read off them; what headers need is told below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_BINARY_DIR}/platform ${CMAKE_BINARY_DIR}/NerioSwitchTable ${CMAKE_BINARY_DIR}/chip)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_LIB_PACKAGE_NAME libnerioswitchtable0)
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libnerioswitchtable-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "libfmt-dev, libboost-dev, robin-map-dev, nlohmann-json3-dev, zlib1g-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME nerio-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)

include(CPack)
cpack_add_component(lib DESCRIPTION
  "Table layer of the driver of a hardware switch\n The libraries that drivers and tools run with.")
cpack_add_component(dev DEPENDS lib DESCRIPTION
  "Table layer of the driver of a hardware switch: headers\n What agents are built with, their documentation, and examples.")
cpack_add_component(tools DEPENDS lib DESCRIPTION
  "Table layer of the driver of a hardware switch: nerio\n The command line that programs, shows and verifies a switch.")
