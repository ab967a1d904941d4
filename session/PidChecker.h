// The live processes of the machine, listed once.
#pragma once

#include "foundation/ZMap.h"

class PidChecker {
public:
    PidChecker();
    PidChecker(const PidChecker&) = delete;
    PidChecker& operator=(const PidChecker&) = delete;

    // True when the list could not be read.
    bool isEmpty() const { return myCount == 0; }
    bool contains(int pid) const;
    // Dead only when the list could be read and lacks the pid.
    bool isKnownDead(int pid) const { return !isEmpty() && !contains(pid); }

private:
    ZSet<int> myPids;
    int myCount;
};
