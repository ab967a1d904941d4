// The files of the dominator step: ints of 32 bits, least significant byte
// first, written through a buffer of 0x100000 bytes and read back through a
// FileReader; and the temporary files of the low-memory computation.
#pragma once

#include "foundation/AbstractWriter.h"
#include "foundation/System.h"
#include "foundation/ZString.h"

class IntFileWriter : public AbstractWriter {
public:
    static constexpr int BUFFER_SIZE = 0x100000;

    // The file is created or truncated; isOpen() tells whether that worked.
    explicit IntFileWriter(const char* path);
    ~IntFileWriter() override;

    bool isOpen() const { return myFd >= 0; }
    void flush() override;
    // Flushes and closes; false when a write failed.
    bool close();
    const ZString& getError() const { return myError; }

private:
    int myFd;
    ZString myError;
};

// A temporary file of the low-memory computation: "kzttmp_", a name unique
// to the process, and the suffix, in the given folder (or the temporary
// folder). Deleted when the holder goes.
class TemporaryIntFile {
public:
    TemporaryIntFile(const ZString& folder, const char* suffix);
    ~TemporaryIntFile();
    TemporaryIntFile(const TemporaryIntFile&) = delete;
    TemporaryIntFile& operator=(const TemporaryIntFile&) = delete;

    const ZString& getPath() const { return myPath; }
    // Opening failures are fatal, with the path.
    IntFileWriter* openForWriting() const;
    FileReader* openForReading() const;

private:
    ZString myPath;
};

// Reads one int that must be there: a short file is a fatal assertion.
inline int readIntOrFail(FileReader& reader) {
    int32_t value;
    if (!reader.readIntLE(value)) failFatal("assertion failed", __FILE__, __LINE__);
    return value;
}
