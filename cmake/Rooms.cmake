find_package(doctest REQUIRED)
if(BUILD_TESTING)
  find_package(rapidcheck REQUIRED)
endif()

# dnspair_room(NAME SOURCES ... [USES ...] [HEADERS ...])
# The objects of one folder, compiled once. HEADERS must each compile alone.
function(dnspair_room name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;USES" ${ARGN})
  add_library(${name} OBJECT)
  target_sources(${name} PRIVATE ${ARG_SOURCES})
  if(ARG_HEADERS)
    target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${CMAKE_SOURCE_DIR} FILES ${ARG_HEADERS})
  endif()
  target_link_libraries(${name} PUBLIC dnspair_options ${ARG_USES})
endfunction()

# Every test program's main function, compiled once.
add_executable(test_main EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/tests/support/test_main.cc)
target_link_libraries(test_main PRIVATE dnspair_options doctest::doctest)

# dnspair_tests(NAME SOURCES ... [USES ...] [OBJECTS ...])
# One doctest program, and one CTest entry for each of its *_test.cc files. OBJECTS are rooms whose objects the
# program links (object libraries do not pass theirs on).
function(dnspair_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;OBJECTS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES} $<TARGET_OBJECTS:test_main>)
  foreach(room IN LISTS ARG_OBJECTS)
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${room}>)
  endforeach()
  target_link_libraries(${name} PRIVATE dnspair_options doctest::doctest ${ARG_USES})
  if(NOT BUILD_TESTING)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  foreach(source IN LISTS ARG_SOURCES)
    if(source MATCHES "_test\\.cc$")
      cmake_path(ABSOLUTE_PATH source NORMALIZE OUTPUT_VARIABLE path)
      cmake_path(RELATIVE_PATH path BASE_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE label)
      string(REGEX REPLACE "\\.cc$" "" label ${label})
      # A filter that matches no test case is a failure: doctest itself would pass.
      add_test(NAME ${label} COMMAND ${name} --source-file=*${label}.cc --no-skipped-summary
               WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
      set_tests_properties(${label} PROPERTIES FAIL_REGULAR_EXPRESSION "test cases: +0 " TIMEOUT 300)
    endif()
  endforeach()
endfunction()
