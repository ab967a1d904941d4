// Class files kept in the library: the Callback class, base of every
// redefinition of its stubs, and the method listener probe template. Their
// bytes are handed over at start.
#pragma once

#include "foundation/ZVector.h"

struct EmbeddedClass {
    const unsigned char* myBytes;
    int myLength;
};

extern EmbeddedClass ourCallbackBytecode;
extern EmbeddedClass ourMethodListenerProbeBytecode;

// A copy of the class: with the internal option `_agent_cp`, the file
// `relativePath` below that folder (for working on the runtime without a
// rebuild), else the embedded bytes. An empty result is an assertion.
void loadEmbeddedClass(const EmbeddedClass& embedded, const char* relativePath, ZVector<unsigned char, 10>& bytes);
