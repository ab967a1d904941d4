// SocketWriter: drains straight into a socket.
#pragma once

#include "foundation/AbstractWriter.h"

class SocketWriter : public AbstractWriter {
public:
    SocketWriter(int socket, int capacity, bool littleEndian);

    void flush() override;
    int getSocket() const { return mySocket; }

private:
    int mySocket;
};
