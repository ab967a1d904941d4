// FileMemoryMapper: small values written at random offsets of a file that
// may be many gigabytes long. The range concerned is mapped as one region
// when it can be; otherwise a few pages are mapped and unmapped on demand,
// the most recently used kept.
#pragma once

#include <cstdint>

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class FileMemoryMapper {
public:
    // `end` of -1 stands for the file length. The region limit is in MiB, 0
    // for none; page size in KiB and page count 0 for the defaults.
    FileMemoryMapper(const ZString& path, int64_t start, int64_t end);
    FileMemoryMapper(const ZString& path, int64_t start, int64_t end, int64_t regionLimitMb, int64_t pageSizeKb,
                     int pageCount);
    ~FileMemoryMapper();
    FileMemoryMapper(const FileMemoryMapper&) = delete;
    FileMemoryMapper& operator=(const FileMemoryMapper&) = delete;

    bool isOpened() const { return myFd >= 0; }
    // Set by the first page that could not be mapped; from then on put does nothing.
    bool hasError() const { return myError; }
    bool isUsingPages() const { return myRegion == nullptr; }
    int getUnmapCount() const { return myUnmapCount; }

    // The low `size` bytes of `value`, most significant first, at the file offset.
    void put(int64_t offset, int64_t value, int size) {
        if (myError) return;
        checkRange(offset, size);
        if (myRegion != nullptr) {
            uint8_t* target = myRegion + (offset - myStartAligned);
            for (int i = size - 1; i >= 0; i--) *target++ = (uint8_t)(value >> (8 * i));
            return;
        }
        putPaged(offset, value, size);
    }

private:
    struct Page {
        int64_t myOffset;
        uint8_t* myAddress;
    };

    void open(const ZString& path, int64_t start, int64_t end, int64_t regionLimitMb, int64_t pageSizeKb,
              int pageCount);
    void checkRange(int64_t offset, int size) const;
    void putPaged(int64_t offset, int64_t value, int size);
    uint8_t* getPage(int64_t offset);
    uint8_t* map(int64_t offset, int64_t length);
    void unmap(void* address, int64_t length);

    int myFd;
    int64_t myFileLength;
    int64_t myMappedLength;
    int64_t myStart;
    int64_t myEnd;
    uint8_t* myRegion;
    int64_t myStartAligned;
    int64_t myEndAligned;
    int64_t myPageSize;
    ZVector<Page, 16> myPages;
    int myPageCount;
    bool myError;
    int myUnmapCount;
};
