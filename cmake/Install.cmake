# What `cmake --install` lays down. Everything finds the rest by relative paths, so that an installed tree
# can be moved. The components are the packages that cmake/Package.cmake makes: lib, dev and tools.
include(CMakePackageConfigHelpers)

set(NERIO_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/nerio)
set(NERIO_PACKAGE ${CMAKE_INSTALL_LIBDIR}/cmake/NerioSwitchTable)
set(NERIO_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(NERIO_DEV_DOC ${CMAKE_INSTALL_DATADIR}/doc/libnerioswitchtable-dev)

install(DIRECTORY platform/ DESTINATION ${NERIO_HEADERS} COMPONENT dev FILES_MATCHING PATTERN *.h)
install(DIRECTORY NerioSwitchTable chip agent DESTINATION ${NERIO_HEADERS} COMPONENT dev FILES_MATCHING PATTERN *.h)

# Commands find the libraries from where they are, libraries each other.
file(RELATIVE_PATH from_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(NerioPlatform NerioSwitchTable NerioChip PROPERTIES INSTALL_RPATH $ORIGIN)
set_target_properties(nerio PROPERTIES INSTALL_RPATH $ORIGIN/${from_bin_to_lib})
install(TARGETS NerioPlatform NerioSwitchTable NerioChip NerioAgent EXPORT NerioSwitchTableTargets
  LIBRARY COMPONENT lib NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev
  INCLUDES DESTINATION ${NERIO_HEADERS})
install(TARGETS nerio RUNTIME COMPONENT tools)
# Manual pages and completions: man/man1/*, bash-completion/completions/*, as the build has made them.
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT tools OPTIONAL)

install(EXPORT NerioSwitchTableTargets NAMESPACE NerioSwitchTable:: DESTINATION ${NERIO_PACKAGE} COMPONENT dev)
configure_package_config_file(cmake/NerioSwitchTableConfig.cmake.in NerioSwitchTableConfig.cmake
  INSTALL_DESTINATION ${NERIO_PACKAGE} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(NerioSwitchTableConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/NerioSwitchTableConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/NerioSwitchTableConfigVersion.cmake
  DESTINATION ${NERIO_PACKAGE} COMPONENT dev)

set(NERIO_PKGCONFIG_TO_PREFIX /)
cmake_path(RELATIVE_PATH NERIO_PKGCONFIG_TO_PREFIX BASE_DIRECTORY /${NERIO_PKGCONFIG})
foreach(module nerioswitchtable neriochip nerioagent)
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${module}.pc DESTINATION ${NERIO_PKGCONFIG} COMPONENT dev)
endforeach()

install(FILES README.md CHANGELOG.md DESTINATION ${NERIO_DEV_DOC} COMPONENT dev)
install(DIRECTORY docs examples DESTINATION ${NERIO_DEV_DOC} COMPONENT dev
  FILES_MATCHING PATTERN *.md PATTERN *.cpp PATTERN *.json PATTERN CMakeLists.txt
  PATTERN examples/CMakeLists.txt EXCLUDE)
