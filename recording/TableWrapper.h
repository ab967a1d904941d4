// An event table that the agent's own recorders write: made from its
// description on first use, then known by its id.
#pragma once

#include <atomic>

#include "foundation/ZString.h"

class TableWrapper {
public:
    // `failureWarning`, when given, is logged if the agent refuses the table.
    explicit TableWrapper(const char* description, const char* failureWarning = nullptr)
        : myDescription(description), myFailureWarning(failureWarning), myId(0) {}

    // The table's id, made now if it is not yet; -1 when the agent refused it.
    int getId();

private:
    const char* myDescription;
    const char* myFailureWarning;
    std::atomic<int> myId;
};
