// The operating-system layer: time, CPU and memory figures, process facts,
// environment, well-known paths, files, configuration text, wildcard matching
// and sockets. Everything the agent asks of the system goes through here.
#pragma once

#include <cstdint>
#include <cstdio>

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

// ---- Time ----
// Non-descending monotonic nanoseconds.
int64_t getTimeNs();
// The same source without the non-descending guard: the tracing fast path.
int64_t getTimeNsForTracing();
int64_t ensureNonDescendingTimeNs(int64_t t);
int64_t emulateMonotonicTimeNs(int64_t t);
// "monotonic", or "warning: non-monotonic" when the monotonic clock is missing.
ZString getTimeNsInfo();
int64_t getCurrentTimeMs();
ZString getCurrentDateAsYYYYMMDD();
// Local time as "YYYY-MM-DD HH:MM:SS.mmm".
ZString getCurrentDateTimeVerbose();

// ---- CPU and memory ----
// The calling thread's own CPU time (user plus system) in ns; -1 on failure.
int64_t getCurrentThreadCpuTimeNs();
// CPU time of the thread with that native id (a pthread_t), which must be
// alive: the id of an ended thread names nothing. -1 on failure.
int64_t getThreadCpuTimeNs(int64_t threadId);
int64_t getProcessCpuTimeNs(bool kernelOnly);
int64_t getSystemCpuTimeNs(bool kernelOnly);
int64_t getOtherProcessCpuTimeNs(int pid);
// Bytes, or -1 where not available.
int64_t getProcessMemoryUsage();
int64_t getProcessPhysicalMemoryUsage();
int64_t getSystemPhysicalMemorySize();
bool is64BitMachine();

// ---- Process ----
int z_getpid();
int64_t getCurrentThreadNativeID();
void getCommandLineParameters(ZVectorSafe<ZString>& result);
// `result` must be empty; a failure leaves it empty.
void getCommandLineParameters(ZVectorSafe<ZString>& result, int pid);
ZString getProcessOwnerUnix(int pid);
ZString getExecutablePath(int pid);
ZString getAgentLibraryPath();
// "linux-x86-64" on this build.
const char* getPresentablePlatformName();
ZString getHostName();
// The live process ids; empty when they cannot be listed.
void getLiveProcessIds(ZVector<int>& result);
// "DebugPS: " with the process count and list, the current one marked "* ".
ZString getDebugPSMessage();

// ---- Environment and paths ----
ZString z_getenv(const char* name);
void z_setenv(const char* name, const char* value);
ZString z_getcwd();
ZString getUserHome();
ZString getFilePathInAppSettings(const char* name);
ZString getTempFilePath(const ZString& dir, const char* name);

// ---- Files ----
FILE* z_fopen(const char* path, const char* mode);
bool readFile(FILE* file, ZString& result);
bool readFile(const char* path, ZVector<unsigned char, 10>& result);
bool readFile(FILE* file, ZVector<unsigned char, 10>& result);
bool readFileFromDescriptor(int fd, ZVector<unsigned char, 10>& result);
ZString readTextFileContentOrEmpty(const char* path);
// -1 for a missing file and for a directory.
int64_t getFileSize(const char* path);
bool z_deleteFile(const char* path);
bool setFileSize(int fd, int64_t size);
ZString getFileName(const ZString& path);
ZString getAbsoluteFilePath(const ZString& path);
void z_mkdirs(const ZString& path);
int openFileForRead(const char* path);
int openFileForWrite(const char* path);
int openFileForWriteExclusive(const char* path);
int openFileForReadAndWrite(const char* path);
// An existing file, for reading and writing in place.
int openFileForUpdate(const char* path);
int openFileForAppend(const char* path);
// Replaces bytes at or below 31 and each of \/<>|":?* by "-".
ZString toFileNamePart(const ZString& text);

class FileSearch {
public:
    static bool isDirectory(const char* path);
    // Names (not paths) of the entries of `folder`, without "." and "..".
    static void listFiles(const char* folder, ZVectorSafe<ZString>& result);
};

// Sequential reading of a file with seek, through a buffer of 0x100000 bytes.
class FileReader {
public:
    static constexpr int BUFFER_SIZE = 0x100000;

    explicit FileReader(const char* path);
    ~FileReader();
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;
    bool isOpen() const { return myFd >= 0; }
    bool seek(int64_t offset);
    // The next byte, or -1 at the end.
    int readByte() {
        if (myPosition == myLimit && !fill()) return -1;
        return myBuffer[myPosition++];
    }
    // Four bytes, least significant first; false when the file ends before.
    bool readIntLE(int32_t& value) {
        if (myLimit - myPosition >= 4) {
            const uint8_t* p = myBuffer + myPosition;
            value = (int32_t)((uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24);
            myPosition += 4;
            return true;
        }
        uint32_t result = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            int byte = readByte();
            if (byte < 0) return false;
            result |= (uint32_t)byte << shift;
        }
        value = (int32_t)result;
        return true;
    }

private:
    bool fill();

    int myFd;
    uint8_t* myBuffer;
    int32_t myPosition;
    int32_t myLimit;
};

// ---- Text ----
bool wildcardMatch(const char* pattern, const char* text);
bool wildcardMatchW(const wchar_t* pattern, const wchar_t* text);
bool wildcardMatchZS(const ZString& pattern, const ZString& text);
ZString readConfigFromFile(const ZString& path, const char* defaultName, const char* defaultContent);
void splitConfigFile(ZVectorSafe<ZString>* result, const ZString& text);
ZString doubleToString(double value, int digits);
char* z_strdup(const char* text);

// ---- Sockets and errors ----
bool z_send(int socket, const void* buffer, int length);
ZString getLastSocketErrorText(int error);
ZString getEnglishErrorMessage(int error);
ZString z_strerror(int error);
void z_sleep_ms(int ms);
