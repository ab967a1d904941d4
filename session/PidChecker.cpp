#include "session/PidChecker.h"

#include "foundation/System.h"

PidChecker::PidChecker() : myCount(0) {
    ZVector<int> pids;
    getLiveProcessIds(pids);
    for (int i = 0; i < pids.getSize(); i++) {
        if (pids[i] > 0 && myPids.add(pids[i])) myCount++;
    }
}

bool PidChecker::contains(int pid) const {
    return pid > 0 && myCount != 0 && myPids.contains(pid);
}
