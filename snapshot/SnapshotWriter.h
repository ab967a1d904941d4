// SnapshotWriter: drains into a snapshot file, most significant byte first,
// with 4-byte object ids. The file can be patched behind the writing
// position: tag lengths and the "oid_count" value are filled in afterwards.
#pragma once

#include <cstdint>

#include "foundation/AbstractWriter.h"

class SnapshotWriter : public AbstractWriter {
public:
    static constexpr int BUFFER_SIZE = 0x100000;

    // The descriptor stays the caller's: this writer neither closes it nor
    // flushes into it on destruction.
    explicit SnapshotWriter(int fd);

    void flush() override;

    // Tag byte, int 0, int length; the length is patched by endTag.
    void beginTag(int tag);
    void endTag();
    bool isTagOpen() const { return myCurrentTag != -1; }

    // The "oid_count" key and a placeholder value of fixed width, patched by
    // commitOIDCountProperty once the count is known.
    void prepareOIDCountProperty();
    void commitOIDCountProperty(int64_t count);

    // The low `size` bytes of `value`, most significant first, at an offset
    // already written: into the buffer while they are there, else into the file.
    void putAt(int64_t offset, int64_t value, int size);

    // File offset of the next byte to be written.
    int64_t getCurrentOffset();
    // For a caller that moved the descriptor itself: the offset is read anew.
    void forgetFilePosition() { myFilePosition = -1; }

    // The first write failure; empty while all went well.
    const ZString& getError() const { return myError; }
    bool hasError() const { return !myError.isEmpty(); }

private:
    static ZString formatOIDCount(int64_t count);
    // A patch: flush, move to `offset`, put the new bytes, then seekToEnd.
    void seekTo(int64_t offset);
    void seekToEnd();

    int32_t myCurrentTag;
    int64_t myTagLengthPosition;
    int64_t myOIDCountPosition;
    int64_t myFilePosition;
    int32_t myFd;
    ZString myError;
};
