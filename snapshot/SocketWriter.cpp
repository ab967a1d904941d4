#include "snapshot/SocketWriter.h"

#include "foundation/System.h"

SocketWriter::SocketWriter(int socket, int capacity, bool littleEndian)
    : AbstractWriter(capacity, littleEndian, true), mySocket(socket) {}

void SocketWriter::flush() {
    if (getPosition() == 0) return;
    // z_send logs its own failure; the stream is the receiver's to judge.
    z_send(mySocket, getBuffer(), getPosition());
    discardBuffer();
}
