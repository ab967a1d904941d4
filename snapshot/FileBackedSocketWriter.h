// FileBackedSocketWriter: gathers a reply in a temporary file while the
// agent's lock is held, and sends it over the socket when destroyed, after
// the lock is gone. Least significant byte first, 4-byte object ids.
#pragma once

#include "snapshot/SocketWriter.h"

class FileBackedSocketWriter : public SocketWriter {
public:
    static constexpr int DEFAULT_BUFFER_SIZE = 0x400000;

    // A buffer size below 1 takes the default.
    FileBackedSocketWriter(int socket, int bufferSize);
    // Flushes, sends the file in pieces, closes and deletes it.
    ~FileBackedSocketWriter() override;

    void flush() override;

    const ZString& getError() const { return myError; }
    const ZString& getTempFilePath() const { return myTempPath; }

private:
    void ensureTempFileCreated();
    void sendTempFile();

    int myTempFd;
    ZString myTempPath;
    ZString myError;
};
