# Adds a shared library that is installed: `include_root` is the folder that its headers are included from.
function(nerio_library name include_root)
  add_library(${name} SHARED ${ARGN})
  add_library(NerioSwitchTable::${name} ALIAS ${name})
  # Below 1.0 each minor version is a binary interface of its own.
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${include_root}>)
  target_link_libraries(${name} PRIVATE nerio_compile_options)
endfunction()

# The objects that the build NERIO_TEST_OBJECTS made of sources of this folder, for its target of that name.
function(nerio_compiled_objects result target)
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE folder)
  set(objects)
  foreach(source ${ARGN})
    cmake_path(GET source FILENAME name)
    list(APPEND objects ${NERIO_TEST_OBJECTS}/${folder}/CMakeFiles/${target}.dir/${name}.o)
  endforeach()
  set_source_files_properties(${objects} PROPERTIES EXTERNAL_OBJECT ON)
  set(${result} ${objects} PARENT_SCOPE)
endfunction()
