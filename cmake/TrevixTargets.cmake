# How every target of ours is made. The link lines are the proof of the layers: core code sees the
# ports and other core folders, never an adapter; an adapter sees the ports and its own library.

find_program(TREVIX_CCACHE ccache)
if(TREVIX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${TREVIX_CCACHE}")
endif()

# Linked privately by everything of ours and by nothing of others'.
add_library(trevix_settings INTERFACE)
target_compile_options(trevix_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  -Wold-style-cast -Wextra-semi
  $<$<BOOL:${TREVIX_DEV}>:-Werror>)
target_compile_definitions(trevix_settings INTERFACE _FILE_OFFSET_BITS=64)
if(TREVIX_SANITIZE)  # not a generator expression: the value contains commas
  target_compile_options(trevix_settings INTERFACE -fsanitize=${TREVIX_SANITIZE}
    -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(trevix_settings INTERFACE -fsanitize=${TREVIX_SANITIZE})
endif()
if(TREVIX_COVERAGE)
  target_compile_options(trevix_settings INTERFACE --coverage -O0)
  target_link_options(trevix_settings INTERFACE --coverage)
endif()

# trevix_core(NAME SOURCES ... USES other core targets)
function(trevix_core name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_library(trevix_${name} STATIC ${ARG_SOURCES})
  target_include_directories(trevix_${name} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(trevix_${name} PUBLIC trevix_ports ${ARG_USES} PRIVATE trevix_settings)
endfunction()

# trevix_adapter(NAME SOURCES ... LIBRARIES outside libraries USES other targets of ours)
function(trevix_adapter name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;USES" ${ARGN})
  add_library(trevix_${name} STATIC ${ARG_SOURCES})
  target_include_directories(trevix_${name} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(trevix_${name} PUBLIC trevix_ports ${ARG_USES}
    PRIVATE trevix_settings ${ARG_LIBRARIES})
endfunction()

# trevix_test(NAME LABEL unit SOURCES ... USES ...): one GoogleTest program, each test a ctest test.
function(trevix_test name)
  cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "SOURCES;USES" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${ARG_USES} trevix_settings GTest::gmock_main)
  if(TREVIX_SANITIZE)
    # The product's code is what is looked at; looking at the tests' own as well, with every local
    # variable in the debug data, took a third of the whole build.
    target_compile_options(${name} PRIVATE -fno-sanitize=undefined -g1)
  endif()
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${ARG_LABEL}" TIMEOUT ${ARG_TIMEOUT})
endfunction()
