#include "snapshot/SnapshotWriter.h"

#include <unistd.h>

#include "services/Logger.h"
#include "foundation/System.h"

SnapshotWriter::SnapshotWriter(int fd)
    : AbstractWriter(BUFFER_SIZE, false, true), myCurrentTag(-1), myTagLengthPosition(-1), myOIDCountPosition(-1),
      myFilePosition(-1), myFd(fd) {}

void SnapshotWriter::flush() {
    int pending = getPosition();
    if (pending == 0) return;
    // The offset must be known before the write, so that it can advance by
    // the buffer even when the write fails.
    if (myFilePosition < 0) myFilePosition = lseek(myFd, 0, SEEK_CUR);
    writeToFile(myFd, getBuffer(), pending, myError);
    myFilePosition += pending;
    discardBuffer();
}

int64_t SnapshotWriter::getCurrentOffset() {
    if (myFilePosition < 0) myFilePosition = lseek(myFd, 0, SEEK_CUR);
    return myFilePosition + getPosition();
}

void SnapshotWriter::putAt(int64_t offset, int64_t value, int size) {
    int64_t bufferStart = getCurrentOffset() - getPosition();
    for (int i = 0; i < size; i++) {
        uint8_t byte = (uint8_t)(value >> (8 * (size - 1 - i)));
        int64_t at = offset + i;
        KZT_ASSERT(at < bufferStart + getPosition());
        if (at >= bufferStart) {
            getWritableBuffer()[at - bufferStart] = byte;
        } else if (pwrite(myFd, &byte, 1, at) != 1 && myError.isEmpty()) {
            myError = "Write error";
        }
    }
}

void SnapshotWriter::seekTo(int64_t offset) {
    flush();
    lseek(myFd, offset, SEEK_SET);
    myFilePosition = offset;
}

void SnapshotWriter::seekToEnd() {
    flush();
    lseek(myFd, 0, SEEK_END);
    myFilePosition = -1;
}

void SnapshotWriter::beginTag(int tag) {
    KZT_ASSERT(myCurrentTag == -1);
    writeByte(tag);
    writeInt(0);
    myTagLengthPosition = getCurrentOffset();
    writeInt(0);
    myCurrentTag = tag;
}

void SnapshotWriter::endTag() {
    KZT_ASSERT(myCurrentTag != -1);
    int64_t length = getCurrentOffset() - myTagLengthPosition - 4;
    seekTo(myTagLengthPosition);
    writeInt(length < 0xFFFFFFFFLL ? (int)(uint32_t)length : (int)0xFFFFFFFF);
    seekToEnd();
    myCurrentTag = -1;
    myTagLengthPosition = -1;
}

ZString SnapshotWriter::formatOIDCount(int64_t count) {
    return ZString::formatLong(count, 32, "0");
}

void SnapshotWriter::prepareOIDCountProperty() {
    writeString("oid_count");
    myOIDCountPosition = getCurrentOffset();
    writeString(formatOIDCount(0));
}

void SnapshotWriter::commitOIDCountProperty(int64_t count) {
    KZT_ASSERT(myOIDCountPosition >= 0);
    seekTo(myOIDCountPosition);
    writeString(formatOIDCount(count));
    seekToEnd();
}
