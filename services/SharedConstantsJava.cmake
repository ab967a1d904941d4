# Build script: the Java half's class com.corvane.runtime.SharedConstants
# from services/SharedConstants.def.
# cmake -DINPUT=<SharedConstants.def> -DOUTPUT=<SharedConstants.java> -P SharedConstantsJava.cmake
file(STRINGS "${INPUT}" lines)
set(body "")
foreach(line IN LISTS lines)
  if(line MATCHES "^KZT_INT\\(([A-Z0-9_]+), (.+)\\)$")
    string(APPEND body "    public static final int ${CMAKE_MATCH_1} = ${CMAKE_MATCH_2};\n")
  elseif(line MATCHES "^KZT_LONG\\(([A-Z0-9_]+), (.+)\\)$")
    string(APPEND body "    public static final long ${CMAKE_MATCH_1} = ${CMAKE_MATCH_2}L;\n")
  elseif(line MATCHES "^KZT_TEXT\\(([A-Z0-9_]+), (\".*\")\\)$")
    string(APPEND body "    public static final String ${CMAKE_MATCH_1} = ${CMAKE_MATCH_2};\n")
  elseif(line MATCHES "^KZT_")
    message(FATAL_ERROR "${INPUT}: cannot read the line: ${line}")
  endif()
endforeach()
file(WRITE "${OUTPUT}" "// Generated from services/SharedConstants.def: do not edit.
package com.corvane.runtime;

/** The constants that the native agent and this Java half share. */
public final class SharedConstants {
    private SharedConstants() {
    }

${body}}
")
