// The records of the fixed tables. Every record begins with its modification
// stamp: 0 absent, G live since generation G, -G deleted at generation G.
// writeRecord puts the columns of a live row, in stream order; the table has
// already written index and stamp.
#pragma once

#include <cstdint>

#include "foundation/ZVector.h"
#include "foundation/AbstractWriter.h"

// Method flags.
enum : int {
    METHOD_FLAG_INVISIBLE = 0x1,
    METHOD_FLAG_WALL_TIME = 0x4,
    METHOD_FLAG_PROBE_INSTRUMENTED = 0x10,
    METHOD_FLAG_PROBE_CALLBACK = 0x40,
    METHOD_FLAG_TRACED = 0x80,
    METHOD_FLAG_ALL_WALL_TIME = 0x100,
    METHOD_FLAG_EXCLUDED = 0x200,
    METHOD_FLAG_EXCLUDED_CALLEE = 0x400,
    METHOD_FLAG_NATIVE = 0x800,
    METHOD_FLAG_NEVER_EXCLUDED = 0x1000,
};

struct StringRecord {
    int32_t myStamp = 0;
    char* myText = nullptr;  // owned; null once collected

    void writeRecord(AbstractWriter& writer) const { writer.writeString(myText); }
};

struct ThreadRecord {
    int32_t myStamp = 0;
    int32_t myName = 0;
    int32_t myGroup = 0;
    int32_t myTFIIndex = 0;
    int32_t myTRN = 0;
    int64_t mySecondThreadId = 0;
    int32_t myDaemon = 0;
    int64_t myStartUptime = 0;
    int64_t myEndUptime = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myName);
        writer.writeInt(myGroup);
        writer.writeInt(myTFIIndex);
        writer.writeInt(myTRN);
        writer.writeLong(mySecondThreadId);
        writer.writeInt(myDaemon);
        writer.writeLong(myStartUptime);
        writer.writeLong(myEndUptime);
    }
};

// Its index joins "cpu_profiling" and "alloc_info" for one thread and frame.
struct ThreadFrameRecord {
    int32_t myStamp = 0;
    int32_t myTFIIndex = 0;
    int32_t myFrame = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myTFIIndex);
        writer.writeInt(myFrame);
    }
};

struct MethodRecord {
    int32_t myStamp = 0;
    int32_t myName = 0;
    int32_t myParameters = 0;
    int32_t myClass = 0;
    int32_t myReturnType = 0;
    int32_t mySourceFile = 0;
    int32_t myFlags = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myName);
        writer.writeInt(myParameters);
        writer.writeInt(myClass);
        writer.writeInt(myReturnType);
        writer.writeInt(mySourceFile);
        writer.writeInt(myFlags);
    }
};

struct MonitorRecord {
    int32_t myStamp = 0;
    int32_t myBlockedTRN = 0;
    int32_t myFrame = 0;
    int32_t myOwnerTRN = 0;
    int32_t myMonitorClass = 0;
    int64_t myTime = 0;
    int64_t myCount = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myBlockedTRN);
        writer.writeInt(myFrame);
        writer.writeInt(myOwnerTRN);
        writer.writeInt(myMonitorClass);
        writer.writeLong(myTime);
        writer.writeLong(myCount);
    }
};

struct CpuProfilingRecord {
    int32_t myStamp = 0;
    int64_t myTime = 0;
    int64_t myInvocations = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeLong(myTime);
        writer.writeLong(myInvocations);
    }
};

struct InstanceCountRecord {
    int32_t myStamp = 0;
    int32_t myClass = 0;
    int32_t myCount = 0;
    int64_t mySize = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myClass);
        writer.writeInt(myCount);
        writer.writeLong(mySize);
    }
};

// A node of the shared call tree; children form a list through nextSibling.
struct FrameRecord {
    int32_t myStamp = 0;
    int32_t myParent = -1;
    int32_t myCodePoint = 0;
    int32_t myFirstChild = -1;
    int32_t myNextSibling = -1;
    // Not streamed: tells the frame storage when to find children by hash.
    int32_t myChildCount = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myParent);
        writer.writeInt(myCodePoint);
        writer.writeInt(myFirstChild);
        writer.writeInt(myNextSibling);
    }
};

// Index: a table slot. Stamp: the generation at which that table was cleared.
struct TableGenerationRecord {
    int32_t myStamp = 0;

    void writeRecord(AbstractWriter&) const {}
};

struct SnapshotRecord {
    int32_t myStamp = 0;
    int32_t myFileName = 0;
    int64_t myTime = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myFileName);
        writer.writeLong(myTime);
    }
};

struct AllocInfoRecord {
    int32_t myStamp = 0;
    int64_t myObjectCount = 0;
    int64_t mySize = 0;
    int64_t mySummedAge = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeLong(myObjectCount);
        writer.writeLong(mySize);
        writer.writeLong(mySummedAge);
    }
};

struct GenerationRecord {
    int32_t myStamp = 0;
    int32_t myDescription = 0;
    int64_t myUptime = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myDescription);
        writer.writeLong(myUptime);
    }
};

struct PropertyRecord {
    int32_t myStamp = 0;
    int32_t myKey = 0;
    int32_t myValue = 0;  // a string index or a plain number, by key

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myKey);
        writer.writeInt(myValue);
    }
};

// One thread at a telemetry sample.
struct _ThreadState {
    int32_t myTRN = 0;
    int32_t myFrame = 0;
    int32_t myState = 0;
    int64_t myCpuTime = 0;
};

// One telemetry sample: 12 fixed values, then (custom key, value) pairs.
struct TelemetryRecord {
    static constexpr int FIXED_VALUE_COUNT = 12;
    static constexpr int UPTIME_VALUE = 11;

    int32_t myStamp = 0;
    ZVector<int32_t, 16> myValues;
    ZVector<_ThreadState, 4> myThreadStates;
    bool myHasThreadStates = false;

    TelemetryRecord() { myValues.resize(FIXED_VALUE_COUNT, 0); }

    void writeRecord(AbstractWriter& writer) const {
        int count = myValues.getSize();
        writer.writeInt((count - FIXED_VALUE_COUNT) / 2);
        writer.writeInt(myHasThreadStates ? myThreadStates.getSize() : -1);
        for (int i = 0; i < count; i++) writer.writeInt(myValues[i]);
        if (!myHasThreadStates) return;
        for (const _ThreadState& state : myThreadStates) {
            writer.writeInt(state.myTRN);
            writer.writeInt(state.myFrame);
            writer.writeInt(state.myState);
            writer.writeLong(state.myCpuTime);
        }
    }
};

struct ExceptionRecord {
    int32_t myStamp = 0;
    int32_t myTRN = 0;
    int32_t myThrowFrame = 0;
    int32_t myCatchFrame = 0;
    int32_t myExceptionClass = 0;
    int64_t myCount = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myTRN);
        writer.writeInt(myThrowFrame);
        writer.writeInt(myCatchFrame);
        writer.writeInt(myExceptionClass);
        writer.writeLong(myCount);
    }
};

// A row of a run-time declared event table; the table gives the values meaning.
struct EventRecord {
    static constexpr int INLINE_VALUES = 10;

    int32_t myStamp = 0;
    int32_t myTableId = 0;
    int32_t myEventId = 0;
    ZVector<int32_t, INLINE_VALUES> myValues;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myTableId);
        writer.writeInt(myEventId);
        writer.writeInt(myValues.getSize());
        for (int32_t value : myValues) writer.writeInt(value);
    }
};

struct CodePointRecord {
    int32_t myStamp = 0;
    int32_t myMethod = 0;
    int32_t myLine = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myMethod);
        writer.writeInt(myLine);
    }
};

// A counter incremented elsewhere without a lock; the stream carries the
// count since the base was last set.
struct CounterRecord {
    int32_t myStamp = 0;
    int64_t myCurrent = 0;
    int64_t myBase = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeLong(__atomic_load_n(&myCurrent, __ATOMIC_RELAXED) - myBase);
    }
};
struct CallCountRecord : CounterRecord {};
struct AllocObjectCountRecord : CounterRecord {};

struct AllocPointRecord {
    int32_t myStamp = 0;
    int32_t myPoint = 0;
    int32_t myClass = 0;

    void writeRecord(AbstractWriter& writer) const {
        writer.writeInt(myPoint);
        writer.writeInt(myClass);
    }
};
