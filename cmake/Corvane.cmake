# corvane_objects(<name> <glob>...): an object library corvane_<name> from the
# sources matching the globs. A stage with no sources yet gets no library.
function(corvane_objects name)
  set(sources)
  foreach(pattern ${ARGN})
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${pattern})
    list(APPEND sources ${found})
  endforeach()
  if(sources)
    add_library(corvane_${name} OBJECT ${sources})
  endif()
endfunction()

# corvane_link_stages(<target> <stage>...): link the object libraries of the
# given stages that exist.
function(corvane_link_stages target)
  foreach(stage ${ARGN})
    if(TARGET corvane_${stage})
      target_link_libraries(${target} PRIVATE corvane_${stage})
    endif()
  endforeach()
endfunction()

# corvane_unit_test(<name> STAGES <stage>...): a GoogleTest binary from
# tests/unit/<name>/*.cpp, registered with CTest. Under CORVANE_SANITIZE the
# test name gets the suffix "_asan".
function(corvane_unit_test name)
  cmake_parse_arguments(ARG "" "" "STAGES" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/unit/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(unit_${name} ${sources})
  corvane_link_stages(unit_${name} ${ARG_STAGES})
  target_link_libraries(unit_${name} PRIVATE GTest::gtest GTest::gtest_main pthread dl)
  target_include_directories(unit_${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  set(test_name unit_${name})
  if(CORVANE_SANITIZE)
    set(test_name unit_${name}_asan)
  endif()
  add_test(NAME ${test_name} COMMAND unit_${name} --gtest_brief=1)
  set_tests_properties(${test_name} PROPERTIES
    ENVIRONMENT "CORVANE_HOME=${CMAKE_BINARY_DIR}/test-home;ASAN_OPTIONS=detect_leaks=0"
    LABELS unit)
endfunction()
