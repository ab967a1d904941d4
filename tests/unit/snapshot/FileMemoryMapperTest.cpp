// The file memory mapper: the same bytes through one region and through a
// few pages mapped on demand, values split over a page border, the file's
// length restored, and the range checked.
#include <vector>

#include <gtest/gtest.h>

#include "foundation/Failure.h"
#include "foundation/System.h"
#include "snapshot/FileMemoryMapper.h"
#include "unit/StreamBytes.h"
#include "TempFile.h"

namespace {

struct ScratchFile : TempFile {
    explicit ScratchFile(int64_t length) { EXPECT_EQ(0, ftruncate(fd, length)); }
};

struct Put {
    int64_t offset;
    int64_t value;
    int size;
};

// A 4-byte value 2 bytes before the end of the first 64 KiB page, an 8-byte
// one across the second border, values at both ends of the range, and
// values far apart, so that 16 pages cannot hold them all.
const int64_t LENGTH = 3 * 1024 * 1024 + 123;  // not a multiple of any page
const int64_t START = 100;
const Put PUTS[] = {
    {65536 - 2, 0x11223344, 4},
    {2 * 65536 - 3, 0x0102030405060708LL, 8},
    {START, 0xAB, 1},
    {LENGTH - 2, 0xCDEF, 2},
    {1000, -1, 4},
    {2 * 1024 * 1024 + 7, 0x55, 1},
    {1024 * 1024, 0x7777, 2},
};

std::vector<uint8_t> expectedBytes() {
    std::vector<uint8_t> bytes((size_t)LENGTH, 0);
    for (const Put& put : PUTS)
        for (int i = 0; i < put.size; i++) bytes[put.offset + i] = (uint8_t)(put.value >> (8 * (put.size - 1 - i)));
    return bytes;
}

struct Mode {
    const char* name;
    int64_t regionLimitMb;
    int pageCount;
    bool pages;
};

TEST(FileMemoryMapper, RegionAndPagesWriteTheSameBytesMostSignificantFirst) {
    const Mode modes[] = {
        {"region", 0, 0, false},
        {"pages: region limit 1 MB", 1, 0, true},
        {"pages: two at a time", 1, 2, true},
    };
    for (const Mode& mode : modes) {
        ScratchFile file(LENGTH);
        {
            FileMemoryMapper mapper(ZString(file.path.c_str()), START, -1, mode.regionLimitMb, 0, mode.pageCount);
            ASSERT_TRUE(mapper.isOpened()) << mode.name;
            EXPECT_EQ(mode.pages, mapper.isUsingPages()) << mode.name;
            for (const Put& put : PUTS) mapper.put(put.offset, put.value, put.size);
            EXPECT_FALSE(mapper.hasError()) << mode.name;
            EXPECT_TRUE(mode.pageCount != 2 || mapper.getUnmapCount() > 0) << mode.name;
        }
        EXPECT_EQ(LENGTH, getFileSize(file.path.c_str())) << mode.name << ": the old length is back";
        EXPECT_EQ(expectedBytes(), readFileBytes(file.path)) << mode.name;
    }
}

TEST(FileMemoryMapper, PutsOutsideTheRangeAreFatal) {
    ScratchFile file(10000);
    FileMemoryMapper mapper(ZString(file.path.c_str()), 16, 5000, 0, 0, 0);
    ASSERT_TRUE(mapper.isOpened());
    mapper.put(4999, 1, 1);
    mapper.put(16, 1, 4);
    EXPECT_THROW(mapper.put(5000, 1, 1), KZTRuntimeException);
    EXPECT_THROW(mapper.put(4998, 1, 4), KZTRuntimeException);
    EXPECT_THROW(mapper.put(15, 1, 1), KZTRuntimeException);
}

TEST(FileMemoryMapper, AnEmptyOrMissingFileIsNotOpened) {
    ScratchFile empty(0);
    EXPECT_FALSE(FileMemoryMapper(ZString(empty.path.c_str()), 0, -1, 0, 0, 0).isOpened());
    EXPECT_FALSE(FileMemoryMapper(ZString("/nonexistent/corvane-mapper"), 0, -1, 0, 0, 0).isOpened());
}

}  // namespace
