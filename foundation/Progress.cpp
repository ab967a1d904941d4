#include "foundation/Progress.h"

#include <cstdint>

#include "foundation/Failure.h"
#include "foundation/System.h"

static void putBigEndian(uint8_t* to, uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; i--) {
        to[i] = (uint8_t)value;
        value >>= 8;
    }
}

void Progress::updateProgressImpl(int percent) {
    KZT_ASSERT(percent >= 1 && percent <= 99);
    if (percent <= myLastPercent) return;
    myLastPercent = percent;
    if (myLogged) {
        ZString text("snapshot progress: ");
        text.appendLong(percent);
        reportMessage(text.c_str());
    }
    if (myFd < 0) return;
    // One message: long 123456789, int 100600, int percent.
    uint8_t message[16];
    putBigEndian(message, 123456789, 8);
    putBigEndian(message + 8, 100600, 4);
    putBigEndian(message + 12, (uint32_t)percent, 4);
    z_send(myFd, message, sizeof(message));
}
