# What `cmake --install` lays down. Everything finds the rest by relative paths, so that an installed tree
# can be moved.
include(CMakePackageConfigHelpers)

set(NERIO_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/nerio)
set(NERIO_PACKAGE ${CMAKE_INSTALL_LIBDIR}/cmake/NerioSwitchTable)
set(NERIO_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY platform/ DESTINATION ${NERIO_HEADERS} FILES_MATCHING PATTERN *.h)
install(DIRECTORY NerioSwitchTable chip DESTINATION ${NERIO_HEADERS} FILES_MATCHING PATTERN *.h)

foreach(library NerioPlatform NerioSwitchTable NerioChip)
  if(TARGET ${library})  # guards go once every folder has code
    set_target_properties(${library} PROPERTIES INSTALL_RPATH $ORIGIN)
    install(TARGETS ${library} EXPORT NerioSwitchTableTargets INCLUDES DESTINATION ${NERIO_HEADERS})
  endif()
endforeach()
if(TARGET nerio)
  file(RELATIVE_PATH from_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(nerio PROPERTIES INSTALL_RPATH $ORIGIN/${from_bin_to_lib})
  install(TARGETS nerio)
endif()

install(EXPORT NerioSwitchTableTargets NAMESPACE NerioSwitchTable:: DESTINATION ${NERIO_PACKAGE})
configure_package_config_file(cmake/NerioSwitchTableConfig.cmake.in NerioSwitchTableConfig.cmake
  INSTALL_DESTINATION ${NERIO_PACKAGE} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(NerioSwitchTableConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/NerioSwitchTableConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/NerioSwitchTableConfigVersion.cmake
  DESTINATION ${NERIO_PACKAGE})

set(NERIO_PKGCONFIG_TO_PREFIX /)
cmake_path(RELATIVE_PATH NERIO_PKGCONFIG_TO_PREFIX BASE_DIRECTORY /${NERIO_PKGCONFIG})
foreach(module nerioswitchtable neriochip)
  configure_file(cmake/${module}.pc.in ${module}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${module}.pc DESTINATION ${NERIO_PKGCONFIG})
endforeach()
