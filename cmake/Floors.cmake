# The floors of the house: every folder is one static library and names the
# libraries below it that it may use.  A library sees only those at link time;
# tests/structure checks the includes against the same order.

# The headers of a library.  One that its own source includes first compiles alone, as the build shows; the
# others are for the target all_verify_interface_header_sets.
function(lhv_headers name sources)
  foreach(source ${sources})
    file(STRINGS ${source} includes REGEX "^#include" LIMIT_COUNT 1)
    list(APPEND first ${includes})
  endforeach()
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  foreach(header ${ARGN})
    if("#include \"${folder}/${header}\"" IN_LIST first)
      list(APPEND shown ${header})
    else()
      list(APPEND unproven ${header})
    endif()
  endforeach()
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${shown})
  if(unproven)
    target_sources(${name} PUBLIC FILE_SET unproven TYPE HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${unproven})
    set_target_properties(${name} PROPERTIES INTERFACE_HEADER_SETS_TO_VERIFY unproven)
  else()
    set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS OFF)
  endif()
endfunction()

# Headers that many sources of a target share, compiled once.  Only where LISTHAVEN_PCH says so: with
# them a source compiles that forgot an include.
function(lhv_precompile name)
  if(LISTHAVEN_PCH)
    target_precompile_headers(${name} PRIVATE ${ARGN})
  endif()
endfunction()

# On Windows a program carries a manifest, for UTF-8 and long paths, and its version.
function(lhv_windows_program name description)
  if(WIN32)
    configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/windows/program.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.rc @ONLY)
    target_sources(${name} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${name}.rc)
    set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${name}.rc PROPERTIES
      OBJECT_DEPENDS ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/windows/program.manifest)
    if(MSVC)
      target_link_options(${name} PRIVATE /MANIFEST:NO)
    endif()
  endif()
endfunction()

# lhv_library(NAME [SOURCES file...] [HEADERS file...] [DEPENDS library...])
function(lhv_library name)
  cmake_parse_arguments(L "" "" "SOURCES;HEADERS;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  if(NOT L_SOURCES)
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${L_DEPENDS})
    return()
  endif()
  add_library(${name} STATIC ${L_SOURCES})
  lhv_headers(${name} "${L_SOURCES}" ${L_HEADERS})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${L_DEPENDS} PRIVATE lhv_warnings ${L_PRIVATE_DEPENDS})
  lhv_precompile(${name} <algorithm> <cstdint> <functional> <map> <memory> <optional> <string> <string_view> <vector>)
endfunction()

# lhv_test(NAME [COST n] [SOURCES file...] [DEPENDS library...])
#   COST   the longest tests start first: about how many seconds the longest one takes
function(lhv_test name)
  cmake_parse_arguments(T "" "COST" "SOURCES;DEPENDS" ${ARGN})
  if(NOT T_SOURCES)
    return()
  endif()
  add_executable(${name} ${T_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${T_DEPENDS} lhv_warnings GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE LISTHAVEN_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_compile_options(${name} PRIVATE ${LISTHAVEN_TEST_OPTIONS})
  lhv_precompile(${name} <algorithm> <cstdint> <filesystem> <fstream> <functional> <map> <memory> <optional> <sstream>
    <string> <string_view> <thread> <vector> <gtest/gtest.h>)
  lhv_windows_program(${name} "${name}")
  if(NOT T_COST)
    set(T_COST 1)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300 COST ${T_COST})
endfunction()
