# Build script: turns one class file into a C++ source that defines its bytes
# as the array <TARGET>Bytes and their count as <TARGET>Length.
# cmake -DINPUT=<file.class> -DOUTPUT=<file.cpp> -DTARGET=<name> -P EmbedClassBytes.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "((0x..,){24})" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}" "// Generated from ${INPUT}: do not edit.
#include \"runtime/RuntimeArchive.h\"

const unsigned char ${TARGET}Bytes[${size}] = {
${bytes}
};
const int ${TARGET}Length = ${size};
")
