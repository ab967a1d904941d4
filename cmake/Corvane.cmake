# corvane_layer(<name> SOURCES <file>... [BELOW <layer>...]): the static
# library corvane_<name> of one folder, built from the plain list of its
# files. BELOW names the layers its files include; whoever links a layer gets
# those below it too, and nothing above.
function(corvane_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;BELOW" ${ARGN})
  add_library(corvane_${name} STATIC ${ARG_SOURCES})
  foreach(below ${ARG_BELOW})
    target_link_libraries(corvane_${name} PUBLIC corvane_${below})
  endforeach()
endfunction()

# corvane_unit_test(<layer> [QUIET_ERRORS]): a GoogleTest binary from
# tests/unit/<layer>/*.cpp that links that layer and the layers below it,
# registered with CTest. QUIET_ERRORS keeps the fatal assertions that the
# tests expect out of the output. Under CORVANE_SANITIZE the test name gets
# the suffix "_asan".
function(corvane_unit_test name)
  cmake_parse_arguments(ARG "QUIET_ERRORS" "" "" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/unit/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  if(ARG_QUIET_ERRORS)
    list(APPEND sources ${CMAKE_SOURCE_DIR}/tests/unit/QuietErrors.cpp)
  endif()
  add_executable(unit_${name} ${sources})
  target_link_libraries(unit_${name} PRIVATE corvane_${name})
  target_link_libraries(unit_${name} PRIVATE GTest::gtest GTest::gtest_main pthread dl)
  target_include_directories(unit_${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  set(test_name unit_${name})
  if(CORVANE_SANITIZE)
    set(test_name unit_${name}_asan)
  endif()
  add_test(NAME ${test_name} COMMAND unit_${name} --gtest_brief=1)
  set_tests_properties(${test_name} PROPERTIES
    ENVIRONMENT "CORVANE_HOME=${CMAKE_BINARY_DIR}/test-home;ASAN_OPTIONS=detect_leaks=0"
    LABELS unit TIMEOUT 600)
endfunction()

# corvane_missing_dependency(<message> <test>...): stands in for tests whose
# dependency is missing. Each is registered and fails with the message, so
# that a machine without the dependency cannot pass by running less.
function(corvane_missing_dependency message)
  message(WARNING "${ARGN}: ${message}")
  foreach(test ${ARGN})
    add_test(NAME ${test} COMMAND sh -c "echo '${message}' >&2; exit 1")
  endforeach()
endfunction()

# corvane_java_tests_possible(<var> <test>...): sets <var> in the caller when
# JUnit 5 and corvane.jar are there; otherwise registers the named tests as
# failing ones that say what is missing.
set(CORVANE_JUNIT_CONSOLE /usr/share/java/junit-platform-console-standalone.jar)
function(corvane_java_tests_possible var)
  if(NOT TARGET corvane_cli)
    corvane_missing_dependency("corvane.jar is not built: picocli is missing (Debian package libpicocli-java)" ${ARGN})
  elseif(NOT EXISTS ${CORVANE_JUNIT_CONSOLE})
    corvane_missing_dependency("JUnit 5 is missing (Debian package junit5)" ${ARGN})
  else()
    set(${var} TRUE PARENT_SCOPE)
  endif()
endfunction()

# corvane_snapshot_e2e_test(<name> [PROPERTIES <key>=<value>...] [DEPENDS <target>...]
#                           [ENVIRONMENT <key>=<value>...] [LIBRARIES <jar>...]):
# JUnit tests of tests/<name>/src/, run with the agent library (property
# corvane.agent) and the project's reader from corvane.jar. Where JVMs with
# the agent run programs of known shape, tests/<name>/java/ holds them; their
# class folder reaches the tests as the property corvane.<name>.classes, and
# the LIBRARIES they are built and run with as corvane.<name>.libraries.
# PROPERTIES are passed on as further ones. The agent's home is a folder of
# the build (CORVANE_HOME).
function(corvane_snapshot_e2e_test name)
  cmake_parse_arguments(ARG "" "" "PROPERTIES;DEPENDS;ENVIRONMENT;LIBRARIES" ${ARGN})
  corvane_java_tests_possible(possible ${name}_e2e)
  if(NOT possible OR NOT TARGET corvane)
    return()
  endif()
  foreach(library ${ARG_LIBRARIES})
    if(NOT EXISTS ${library})
      corvane_missing_dependency("${library} is missing (scripts/install-deps test installs it)" ${name}_e2e)
      return()
    endif()
  endforeach()
  set(junit_console ${CORVANE_JUNIT_CONSOLE})
  set(java ${CORVANE_JAVA_HOME}/bin/java)
  set(javac ${CORVANE_JAVA_HOME}/bin/javac)
  set(cli_jar ${CORVANE_DIST}/lib/corvane.jar)
  set(source_dir ${CMAKE_SOURCE_DIR}/tests/${name})
  set(program_classes ${CMAKE_CURRENT_BINARY_DIR}/programs)
  set(test_classes ${CMAKE_CURRENT_BINARY_DIR}/classes)

  set(built ${test_classes}/.built)
  # Libraries the programs use, by path (checked above).
  string(REPLACE ";" ":" libraries "${ARG_LIBRARIES}")
  set(program_class_path)
  if(libraries)
    set(program_class_path -cp ${libraries})
  endif()
  file(GLOB program_sources CONFIGURE_DEPENDS ${source_dir}/java/*.java)
  if(program_sources)
    add_custom_command(OUTPUT ${program_classes}/.built
      COMMAND ${CMAKE_COMMAND} -E rm -rf ${program_classes}
      COMMAND ${javac} --release 11 -g -encoding UTF-8 ${program_class_path} -d ${program_classes} ${program_sources}
      COMMAND ${CMAKE_COMMAND} -E touch ${program_classes}/.built
      DEPENDS ${program_sources}
      COMMENT "Building the programs of the ${name} tests")
    list(APPEND built ${program_classes}/.built)
  endif()
  file(GLOB_RECURSE test_sources CONFIGURE_DEPENDS ${source_dir}/src/*.java)
  add_custom_command(OUTPUT ${test_classes}/.built
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${test_classes}
    COMMAND ${javac} --release 17 -encoding UTF-8 -cp ${cli_jar}:${junit_console} -d ${test_classes} ${test_sources}
    COMMAND ${CMAKE_COMMAND} -E touch ${test_classes}/.built
    DEPENDS ${test_sources} ${cli_jar} corvane_cli
    COMMENT "Building the ${name} tests")
  add_custom_target(${name}_tests ALL DEPENDS ${built} corvane ${ARG_DEPENDS})
  set(extra_properties)
  foreach(property ${ARG_PROPERTIES})
    list(APPEND extra_properties -D${property})
  endforeach()

  add_test(NAME ${name}_e2e COMMAND ${java}
    -Dcorvane.java=${java} -Dcorvane.agent=$<TARGET_FILE:corvane> -Dcorvane.${name}.classes=${program_classes}
    -Dcorvane.${name}.libraries=${libraries} ${extra_properties}
    -jar ${junit_console} --disable-banner --disable-ansi-colors --details=tree --fail-if-no-tests
    --class-path ${test_classes}:${cli_jar} --scan-class-path ${test_classes})
  set(environment CORVANE_HOME=${CMAKE_BINARY_DIR}/test-home-${name} ${ARG_ENVIRONMENT})
  set_tests_properties(${name}_e2e PROPERTIES LABELS e2e TIMEOUT 900 ENVIRONMENT "${environment}")
endfunction()
