// Progress of a long write, in percent, reported to the log and to the
// progress socket of the UI. The percent only ever rises.
#pragma once

class Progress {
public:
    // `fd` is the progress socket, or -1 for none; `logged`: each step is
    // also a line of the log.
    explicit Progress(int fd, bool logged = false) : myFd(fd), myLogged(logged), myLastPercent(0) {}

    int getLastPercent() const { return myLastPercent; }
    // Reports `percent` (1 to 99) when it is above the last one.
    void updateProgressImpl(int percent);

private:
    int myFd;
    bool myLogged;
    int myLastPercent;
};
