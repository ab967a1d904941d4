#include "snapshot/FileMemoryMapper.h"

#include <sys/mman.h>
#include <unistd.h>

#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"

static int64_t internalNumber(const char* name) {
    ZString text = ourOptions.getInternalOption(name);
    return text.isEmpty() ? 0 : atoll(text.c_str());
}

FileMemoryMapper::FileMemoryMapper(const ZString& path, int64_t start, int64_t end)
    : FileMemoryMapper(path, start, end, internalNumber("_region_limit_mb"), internalNumber("_page_size"),
                       (int)internalNumber("_page_count")) {}

FileMemoryMapper::FileMemoryMapper(const ZString& path, int64_t start, int64_t end, int64_t regionLimitMb,
                                   int64_t pageSizeKb, int pageCount)
    : myFd(-1), myFileLength(0), myMappedLength(0), myStart(start), myEnd(end), myRegion(nullptr),
      myStartAligned(0), myEndAligned(0), myPageSize(0), myPageCount(0), myError(false), myUnmapCount(0) {
    open(path, start, end, regionLimitMb, pageSizeKb, pageCount);
}

void FileMemoryMapper::open(const ZString& path, int64_t start, int64_t end, int64_t regionLimitMb,
                            int64_t pageSizeKb, int pageCount) {
    myFileLength = getFileSize(path.c_str());
    if (myFileLength < 1) {
        Logger::message(ZString("FileMemoryMapper: error: ") + path + " invalid length=" +
                        ZString::fromLong(myFileLength));
        return;
    }
    if (myEnd == -1) myEnd = myFileLength;
    int64_t osPageSize = sysconf(_SC_PAGESIZE);
    myPageSize = pageSizeKb > 0 ? pageSizeKb * 1024 : 65536;
    myPageSize = myPageSize <= osPageSize ? osPageSize : myPageSize / osPageSize * osPageSize;
    KZT_ASSERT(myPageSize > 0 && myPageSize % osPageSize == 0);
    myPageCount = pageCount > 0 ? pageCount : 16;
    myStartAligned = start / osPageSize * osPageSize;
    myEndAligned = (myEnd + osPageSize - 1) / osPageSize * osPageSize;
    Logger::message(ZString("FileMemoryMapper: ") + path + " length=" + ZString::fromLong(myFileLength) +
                    " start=" + ZString::fromLong(start) + " startAligned=" + ZString::fromLong(myStartAligned) +
                    " end=" + ZString::fromLong(myEnd) + " endAligned=" + ZString::fromLong(myEndAligned) +
                    " regionSize=" + ZString::fromLong(myEndAligned - myStartAligned) +
                    " osPageSize=" + ZString::fromLong(osPageSize) + " page=" + ZString::fromLong(myPageSize) +
                    " pageCount=" + ZString::fromLong(myPageCount));
    KZT_ASSERT(start < myEnd && myEnd <= myFileLength);
    myFd = openFileForUpdate(path.c_str());
    if (myFd < 0) {
        Logger::message("FileMemoryMapper: file open failed");
        return;
    }
    // A mapped last page beyond the end of the file is not writable, and a
    // fallback page may reach past it too: the file grows to whole pages.
    myMappedLength = (myFileLength + myPageSize - 1) / myPageSize * myPageSize;
    if (myMappedLength != myFileLength) setFileSize(myFd, myMappedLength);
    bool tryRegion = true;
    if (regionLimitMb != 0) {
        Logger::message(ZString("FileMemoryMapper: region limit=") + ZString::fromLong(regionLimitMb) + " MB");
        tryRegion = myEndAligned - myStartAligned <= regionLimitMb * 1024 * 1024;
    }
    if (tryRegion) myRegion = map(myStartAligned, myEndAligned - myStartAligned);
    if (myRegion == nullptr) Logger::message("FileMemoryMapper: using pages");
}

FileMemoryMapper::~FileMemoryMapper() {
    for (int i = 0; i < myPages.getSize(); i++) unmap(myPages[i].myAddress, myPageSize);
    if (myRegion != nullptr) unmap(myRegion, myEndAligned - myStartAligned);
    if (myFd >= 0) {
        if (myMappedLength != myFileLength) setFileSize(myFd, myFileLength);
        close(myFd);
    }
    Logger::message(ZString("~FileMemoryMapper: unmapped pages: ") + ZString::fromLong(myUnmapCount));
}

void FileMemoryMapper::checkRange(int64_t offset, int size) const {
    if (offset >= myStart && offset + size <= myEnd) return;
    Logger::error(ZString("FileMemoryMapper: bad offset ") + ZString::fromLong(offset) + " size " +
                      ZString::fromLong(size) + " outside " + ZString::fromLong(myStart) + ".." +
                      ZString::fromLong(myEnd),
                  __FILE__, __LINE__);
}

void FileMemoryMapper::putPaged(int64_t offset, int64_t value, int size) {
    int64_t pageEnd = (offset / myPageSize + 1) * myPageSize;
    int64_t excess = offset + size - pageEnd;
    if (excess > 0) {
        // The high bytes go before the border, the rest after it.
        put(offset, value >> (8 * excess), size - (int)excess);
        put(pageEnd, value, (int)excess);
        return;
    }
    uint8_t* page = getPage(offset);
    if (page == nullptr) {
        myError = true;
        return;
    }
    uint8_t* target = page + (offset % myPageSize);
    for (int i = size - 1; i >= 0; i--) *target++ = (uint8_t)(value >> (8 * i));
}

uint8_t* FileMemoryMapper::getPage(int64_t offset) {
    int64_t pageOffset = offset / myPageSize * myPageSize;
    for (int i = 0; i < myPages.getSize(); i++) {
        if (myPages[i].myOffset != pageOffset) continue;
        Page found = myPages[i];
        for (int k = i; k > 0; k--) myPages[k] = myPages[k - 1];
        myPages[0] = found;
        return found.myAddress;
    }
    if (myPages.getSize() >= myPageCount) {
        Page last = myPages.pop();
        unmap(last.myAddress, myPageSize);
    }
    uint8_t* address = map(pageOffset, myPageSize);
    if (address == nullptr) return nullptr;
    myPages.push(Page{pageOffset, address});
    for (int k = myPages.getSize() - 1; k > 0; k--) myPages[k] = myPages[k - 1];
    myPages[0] = Page{pageOffset, address};
    return address;
}

uint8_t* FileMemoryMapper::map(int64_t offset, int64_t length) {
    void* address = mmap(nullptr, (size_t)length, PROT_READ | PROT_WRITE, MAP_SHARED, myFd, (off_t)offset);
    return address == MAP_FAILED ? nullptr : (uint8_t*)address;
}

void FileMemoryMapper::unmap(void* address, int64_t length) {
    KZT_ASSERT(munmap(address, (size_t)length) == 0);
    myUnmapCount++;
}
