# How every target of ours is made. The link lines are the proof of the layers: core code sees the
# ports and other core folders, never an adapter; an adapter sees the ports and its own library.

find_program(TREVIX_CCACHE ccache)
if(TREVIX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${TREVIX_CCACHE}")
endif()

# Linked privately by everything of ours and by nothing of others': trevix_settings by the product,
# trevix_test_settings by the unit tests.
function(trevix_settings_library name sanitizers)
  add_library(${name} INTERFACE)
  target_compile_options(${name} INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wold-style-cast -Wextra-semi
    $<$<BOOL:${TREVIX_DEV}>:-Werror>)
  target_compile_definitions(${name} INTERFACE _FILE_OFFSET_BITS=64)
  if(TREVIX_SANITIZE)  # not a generator expression: the value contains commas
    # GCC takes what the sanitizers add for uses of uninitialized values.
    target_compile_options(${name} INTERFACE -fsanitize=${sanitizers} -fno-omit-frame-pointer
      -fno-sanitize-recover=all -Wno-maybe-uninitialized)
    target_link_options(${name} INTERFACE -fsanitize=${TREVIX_SANITIZE})
  endif()
  if(TREVIX_COVERAGE)
    target_compile_options(${name} INTERFACE --coverage -O0)
    target_link_options(${name} INTERFACE --coverage)
  endif()
endfunction()

trevix_settings_library(trevix_settings "${TREVIX_SANITIZE}")

# What is looked at is the product's code. To look for undefined behaviour in the tests' own, or to
# optimize it, each make the tests compile at least a third longer.
string(REPLACE ",undefined" "" test_sanitizers "${TREVIX_SANITIZE}")
trevix_settings_library(trevix_test_settings "${test_sanitizers}")
if(TREVIX_SANITIZE)
  target_compile_options(trevix_test_settings INTERFACE -O0)
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
  target_link_libraries(${name} PRIVATE ${ARG_USES} trevix_test_settings GTest::gmock_main)
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${ARG_LABEL}" TIMEOUT ${ARG_TIMEOUT})
endfunction()
