#include <gtest/gtest.h>

#include "classfile/DataOutput.h"

TEST(DataOutput, ReusingWriterOverwritesItsBufferFromTheStart) {
    ZVector<unsigned char, 10> buffer;
    {
        DataOutput out = DataOutput::reusing(buffer);
        for (int i = 0; i < 3000; i++) out.writeUnsignedShort(i);
        EXPECT_EQ(6000, out.getSize());
        EXPECT_EQ(0x0b, out.getData()[5998]);
    }
    int grown = buffer.getSize();
    EXPECT_GE(grown, 6000);
    DataOutput out = DataOutput::reusing(buffer);
    out.writeInt(0x01020304);
    out.writeUnsignedByte(9);
    out.cut(1, 3);
    EXPECT_EQ(3, out.getSize());
    EXPECT_EQ(grown, buffer.getSize());
    EXPECT_EQ(1, out.getData()[0]);
    EXPECT_EQ(4, out.getData()[1]);
    EXPECT_EQ(9, out.getData()[2]);

    // An appending writer keeps the vector's size equal to what it holds.
    ZVector<unsigned char, 10> bytes;
    bytes.push(7);
    DataOutput append(bytes);
    append.writeUnsignedShort(0x0102);
    EXPECT_EQ(3, bytes.getSize());
    append.cut(0, 1);
    EXPECT_EQ(2, bytes.getSize());
    EXPECT_EQ(1, bytes[0]);
}
