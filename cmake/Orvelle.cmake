# Helpers that keep every library and test declared the same way.

set(ORVELLE_WARNINGS -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wno-missing-field-initializers)
if(ORVELLE_WERROR)
  list(APPEND ORVELLE_WARNINGS -Werror)
endif()
# GCC 12 at -O3 (release) warns about overlapping copies inside std::string's own operator+, a known
# false positive in the standard library: silence it so release builds stay clean.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  list(APPEND ORVELLE_WARNINGS $<$<CONFIG:Release>:-Wno-restrict>)
endif()

# orvelle_add_library(<name> SOURCES ... [DEPS ...] [PRIVATE_DEPS ...])
# Creates the library orvelle_<name>; headers are included as "<folder>/<file>.h" from src/.
function(orvelle_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(orvelle_${name} STATIC ${ARG_SOURCES})
  target_include_directories(orvelle_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(orvelle_${name} PRIVATE ${ORVELLE_WARNINGS})
  target_link_libraries(orvelle_${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
endfunction()

# orvelle_add_test(<name> SOURCES ... [DEPS ...] [LABELS ...])
# One GoogleTest executable per subsystem, registered as one CTest test.
function(orvelle_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${ORVELLE_WARNINGS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} orvelle_test_support GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 600)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
    ENVIRONMENT "ORVELLE_SOURCE_DIR=${PROJECT_SOURCE_DIR};ORVELLE_BINARY_DIR=${PROJECT_BINARY_DIR}")
  if(ARG_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
  endif()
endfunction()
