# Build script: turns one class file into a C++ source that registers its
# bytes with an EmbeddedClass of the instrumentation stage.
# cmake -DINPUT=<file.class> -DOUTPUT=<file.cpp> -DTARGET=<EmbeddedClass variable> -P EmbedClassBytes.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "((0x..,){24})" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}" "// Generated from ${INPUT}: do not edit.
#include \"instrumentation/EmbeddedClass.h\"

static const unsigned char ourBytes[${size}] = {
${bytes}
};

static EmbeddedClassRegistration ourRegistration(${TARGET}, ourBytes, ${size});
")
