// The runtime class archive, stored in the library at build time and cut
// into parts of ARCHIVE_PART_SIZE bytes (all full but the last), and the
// Callback class on its own, the base of each redefinition of its stubs,
// and the method listener probe template, the base of each method trigger's
// probe class.
#pragma once

const int ARCHIVE_PART_SIZE = 10240;

extern const unsigned char* const ourCallbackJarParts[];
extern const int ourCallbackJarPartSizes[];
extern const int ourCallbackJarPartCount;
extern const int ourCallbackJarTotalSize;

extern const unsigned char ourCallbackClassBytes[];
extern const int ourCallbackClassLength;

extern const unsigned char ourMethodListenerProbeClassBytes[];
extern const int ourMethodListenerProbeClassLength;
