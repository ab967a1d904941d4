#include "snapshot/FileBackedSocketWriter.h"

#include <unistd.h>

#include "services/Options.h"
#include "foundation/System.h"

FileBackedSocketWriter::FileBackedSocketWriter(int socket, int bufferSize)
    : SocketWriter(socket, bufferSize < 1 ? DEFAULT_BUFFER_SIZE : bufferSize, true), myTempFd(-1) {}

FileBackedSocketWriter::~FileBackedSocketWriter() {
    flush();
    if (myTempFd < 0) return;
    sendTempFile();
    close(myTempFd);
    z_deleteFile(myTempPath.c_str());
}

void FileBackedSocketWriter::ensureTempFileCreated() {
    if (myTempFd >= 0) return;
    ZString name("kzttmp");
    name.appendLong(z_getpid()).append("_request_buf");
    ZString path = ourOptions.getAgentTempFilePath(name.c_str());
    myTempFd = openFileForReadAndWrite(path.c_str());
    if (myTempFd >= 0) myTempPath = path;
    else if (myError.isEmpty()) myError = "Failed to create temp file";
}

void FileBackedSocketWriter::flush() {
    if (getPosition() == 0) return;
    ensureTempFileCreated();
    if (myTempFd >= 0) writeToFile(myTempFd, getBuffer(), getPosition(), myError);
    discardBuffer();
}

void FileBackedSocketWriter::sendTempFile() {
    if (lseek(myTempFd, 0, SEEK_SET) != 0) return;
    const int pieceSize = 0x10000;
    uint8_t* piece = new uint8_t[pieceSize];
    for (;;) {
        ssize_t count = read(myTempFd, piece, pieceSize);
        if (count <= 0) break;
        if (!z_send(getSocket(), piece, (int)count)) break;
    }
    delete[] piece;
}
