set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(NERIO_CCACHE ccache)
if(NERIO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Sloppy about what precompiled headers leave open: the time of a header is not asked for.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${NERIO_CCACHE})
endif()

# What every target of this project is compiled with; never exported to users of the library.
add_library(nerio_compile_options INTERFACE)
target_compile_options(nerio_compile_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  -Wold-style-cast -Wcast-qual -Werror
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(nerio_compile_options INTERFACE -fno-semantic-interposition)
endif()
if(NERIO_SANITIZE)
  set(NERIO_SANITIZE_FLAGS
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -D_GLIBCXX_ASSERTIONS)
  add_compile_options(${NERIO_SANITIZE_FLAGS})
  add_link_options(${NERIO_SANITIZE_FLAGS})
  # In instrumented code g++ 12 takes parts of its own library for uninitialized.
  target_compile_options(nerio_compile_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
