// Snapshot files for the reader's tests, written by the agent's own database
// and snapshot writer. Reads commands from standard input, one per line with
// tab-separated fields (a line feed in a field written as \n, a backslash as
// \\), and answers each with one line: the index the
// command made, "ok", or "error <text>".
//
//   golden                      fills every table with the values the golden
//                               test expects (tests/cli/.../GoldenSnapshotTest)
//   mode <cpu mode> <allocation mode>   the last modes; CPU from 1 s to 9 s
//   string <text>
//   strings <count> <prefix>    "<prefix><n>" for n from 1; answers the first's id
//   event_table <description>   answers the table's id
//   event <table id> <event id> <value>...
//   method <class> <name> <parameters>
//   own                         the method of the own-line frames
//   frame <parent> <method> <line>
//   frame_row <index> <parent> <code point> <first child> <next sibling>
//                               a frame row as given, right or not
//   thread <name> <trn> <daemon>        answers the thread-frame index
//   time <tfi> <frame> <ns> <invocations>
//   alloc <tfi> <frame> <objects> <bytes> <summed age ms>
//   counted <method> <line> <class> <objects>
//   calls <method> <count>
//   property <key> <value>
//   write <path> [<flags>]      a performance snapshot file
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "db/CodePointStorage.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "db/ThreadFrameIndex.h"
#include "db/ZFrameStorage.h"
#include "db/ZMethod.h"
#include "recording/CpuTracing.h"
#include "snapshot/SnapshotFile.h"
#include "snapshot/TableStream.h"

namespace {

LockHolder* ourFixtureLock;

int str(const std::string& text) { return StringPool::getStrIDImpl(*ourFixtureLock, text.c_str(), false); }

int64_t number(const std::string& text) { return std::stoll(text, nullptr, 0); }

int stamp() { return KZT_DB()->getCurrentGeneration(); }

int method(const std::string& className, const std::string& name, const std::string& parameters,
           const std::string& returnType = "void", bool isNative = false) {
    std::string simple = className.substr(className.rfind('.') + 1);
    return ZMethod::getByName(*ourFixtureLock, className.c_str(), name.c_str(), parameters.c_str(),
                              returnType.c_str(), (simple + ".java").c_str(), isNative);
}

int thread(const std::string& name, int trn, int daemon) {
    ThreadTable* threads = KZT_DB()->getThreadTable();
    int index = threads->nextIndex();
    *threads->getPtr(index, true) =
        ThreadRecord{stamp(), str(name), str("main"), index, trn, 0, daemon, 5000000, 0};
    return index;
}

int threadFrame(int tfi, int frame) {
    return KZT_DB()->getThreadFrameIndex()->getTFI(*ourFixtureLock, tfi, frame, true);
}

int eventTable(const std::string& description) {
    DB* db = KZT_DB();
    int id = db->allocateEventTableId();
    std::string name = description.substr(0, description.find('\n'));
    db->installEventTable(id, new EventTable(db, id, ZString(name.c_str()), ZString(description.c_str())));
    return id;
}

// Every fixed table with rows of known values, an event table and its row.
void fillGolden() {
    const LockHolder& lock = *ourFixtureLock;
    DB* db = KZT_DB();
    int g = stamp();
    ourLastCpuProfilingMode = 12;
    ourCpuProfilingStartNs = 1000000000;
    ourCpuProfilingStopNs = 9000000000;
    int run = method("p.C", "run", "(int)", "long", true);
    int worker = thread("golden worker", 7, 1);
    db->getThreadTable()->getPtr(worker, false)->mySecondThreadId = 0x1122334455667788LL;
    db->getThreadTable()->getPtr(worker, false)->myEndUptime = 100;
    int frame = ZFrameStorage::getChild(lock, 0, run, 12);
    int deep = ZFrameStorage::getChild(lock, frame, run, 5000);  // a line past the packed range
    int cpu = threadFrame(worker, frame);
    *db->getCpuProfilingTable()->getPtr(cpu, true) = CpuProfilingRecord{g, 123456789012LL, 42};
    int allocated = threadFrame(worker, deep);
    *db->getAllocInfoTable()->getPtr(allocated, true) = AllocInfoRecord{g, 10, 640, 33};
    *db->getMonitorTable()->getPtr(1, true) = MonitorRecord{g, 7, frame, 8, str("java.lang.Object"), 1LL << 40, 36};
    *db->getInstanceCountTable()->getPtr(1, true) = InstanceCountRecord{g, str("p.Counted"), 17, 4096};
    *db->getGenerationTable()->getPtr(1, true) = GenerationRecord{g, str("golden generation"), 5000};
    *db->getExceptionTable()->getPtr(2, true) = ExceptionRecord{g, 7, frame, 0, str("p.Failure"), 105};
    *db->getAllocPointTable()->getPtr(1, true) =
        AllocPointRecord{g, CodePointStorage::getCodePoint(lock, run, 3), str("p.Made")};
    AllocObjectCountRecord* objects = db->getAllocObjectCountTable()->getPtr(1, true);
    objects->myStamp = g;
    objects->myCurrent = 17;
    objects->myBase = 10;  // counters carry current minus base
    CallCountRecord* calls = db->getCallCountTable()->getPtr(run, true);
    calls->myStamp = g;
    calls->myCurrent = 50;
    calls->myBase = 8;
    addSnapshotInfo(ZString("golden.snapshot"), 1234567890123LL);
    db->setProperty(lock, "golden.property", -2);
    db->setLongProperty(lock, "golden.long", 0x123456789aLL);
    *db->getMonitorTable()->getPtr(2, true) = MonitorRecord{g, 1, 1, 1, 1, 1, 1};
    db->getMonitorTable()->markDeleted(2, g);
    db->markTableCleared(TABLE_INSTANCE_COUNT);

    EventRecord* event = db->getEventRecordTable()->getPtr(9, true);
    event->myStamp = g;
    event->myTableId = eventTable("Golden\n2\nCount\n0\nBytes\n1");
    event->myEventId = 1000;
    for (int i = 0; i < 12; i++) event->myValues.push(i * 3);  // past the inline capacity

    // A sample with custom pairs and thread states, and one without states.
    TelemetryRecord* sample = db->nextTelemetryRow(lock);
    for (int i = 0; i < 12; i++) sample->myValues[i] = 100 + i;
    sample->myValues.push(str("tele.custom"));
    sample->myValues.push(-7);
    sample->myHasThreadStates = true;
    sample->myThreadStates.push(_ThreadState{7, frame, 5, 6000000000LL});
    db->nextTelemetryRow(lock);
}

std::string answer(const std::vector<std::string>& f) {
    const LockHolder& lock = *ourFixtureLock;
    DB* db = KZT_DB();
    const std::string& command = f[0];
    if (command == "golden") {
        fillGolden();
        return "ok";
    }
    if (command == "mode") {
        ourLastCpuProfilingMode = number(f.at(1));
        ourLastAllocationRecordingMode = number(f.at(2));
        ourCpuProfilingStartNs = 1000000000;
        ourCpuProfilingStopNs = 9000000000;
        return "ok";
    }
    if (command == "string") return std::to_string(str(f.at(1)));
    if (command == "strings") {
        int first = str(f.at(2) + "1");
        for (int n = 2; n <= number(f.at(1)); n++) str(f[2] + std::to_string(n));
        return std::to_string(first);
    }
    if (command == "event_table") return std::to_string(eventTable(f.at(1)));
    if (command == "event") {
        EventRecordTable* events = db->getEventRecordTable();
        int index = events->nextIndex();
        EventRecord* event = events->getPtr(index, true);
        event->myStamp = stamp();
        event->myTableId = number(f.at(1));
        event->myEventId = number(f.at(2));
        for (size_t i = 3; i < f.size(); i++) event->myValues.push(number(f[i]));
        return std::to_string(index);
    }
    if (command == "method") return std::to_string(method(f.at(1), f.at(2), f.at(3)));
    if (command == "own") return std::to_string(ownLineNumberMethod);
    if (command == "frame") {
        return std::to_string(ZFrameStorage::getChild(lock, number(f.at(1)), number(f.at(2)), number(f.at(3))));
    }
    if (command == "frame_row") {
        int index = number(f.at(1));
        *db->getFrameTable()->getPtr(index, true) =
            FrameRecord{stamp(), (int)number(f.at(2)), (int)number(f.at(3)), (int)number(f.at(4)),
                        (int)number(f.at(5))};
        return std::to_string(index);
    }
    if (command == "thread") return std::to_string(thread(f.at(1), number(f.at(2)), number(f.at(3))));
    if (command == "time") {
        int index = threadFrame(number(f.at(1)), number(f.at(2)));
        *db->getCpuProfilingTable()->getPtr(index, true) = CpuProfilingRecord{stamp(), number(f.at(3)), number(f.at(4))};
        return std::to_string(index);
    }
    if (command == "alloc") {
        int index = threadFrame(number(f.at(1)), number(f.at(2)));
        *db->getAllocInfoTable()->getPtr(index, true) =
            AllocInfoRecord{stamp(), number(f.at(3)), number(f.at(4)), number(f.at(5))};
        return std::to_string(index);
    }
    if (command == "counted") {
        AllocPointTable* points = db->getAllocPointTable();
        int index = points->nextIndex();
        *points->getPtr(index, true) =
            AllocPointRecord{stamp(), CodePointStorage::getCodePoint(lock, number(f.at(1)), number(f.at(2))),
                             str(f.at(3))};
        AllocObjectCountRecord* count = db->getAllocObjectCountTable()->getPtr(index, true);
        count->myStamp = stamp();
        count->myCurrent = number(f.at(4));
        return std::to_string(index);
    }
    if (command == "calls") {
        CallCountRecord* calls = db->getCallCountTable()->getPtr(number(f.at(1)), true);
        calls->myStamp = stamp();
        calls->myCurrent = number(f.at(2));
        return "ok";
    }
    if (command == "property") {
        db->setProperty(lock, f.at(1).c_str(), number(f.at(2)));
        return "ok";
    }
    if (command == "write") {
        int fd = open(f.at(1).c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
        if (fd < 0) return "error cannot create " + f[1];
        int64_t flags = f.size() > 2 ? number(f[2]) : 0;
        ZString error;
        {
            ParticipantsCapture capture(lock);
            error = SnapshotFile::writeSnapshotNew(lock, nullptr, fd, -1, ZString(f[1].c_str()), flags, nullptr);
        }
        close(fd);
        return error.isEmpty() ? "ok" : std::string("error ") + error.c_str();
    }
    return "error unknown command " + command;
}

std::string unescape(const std::string& field) {
    std::string text;
    for (size_t i = 0; i < field.size(); i++) {
        if (field[i] == '\\' && i + 1 < field.size()) {
            i++;
            text.push_back(field[i] == 'n' ? '\n' : field[i]);
        } else {
            text.push_back(field[i]);
        }
    }
    return text;
}

}  // namespace

int main() {
    DB::ourCreatePseudoThreads = nullptr;
    ZMethod::ourApplyFilters = nullptr;
    DBSettings settings(5);
    settings.mySessionName = ZString("TestApp");
    DB::createAndInitializeDB(settings);
    LockHolder lock(&ourLock, "fixture");
    ourFixtureLock = &lock;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::vector<std::string> fields;
        size_t from = 0;
        for (size_t tab; (tab = line.find('\t', from)) != std::string::npos; from = tab + 1) {
            fields.push_back(line.substr(from, tab - from));
        }
        fields.push_back(line.substr(from));
        for (std::string& field : fields) field = unescape(field);
        std::string reply;
        try {
            reply = answer(fields);
        } catch (const std::exception& e) {
            reply = std::string("error ") + e.what();
        } catch (...) {
            reply = "error in " + fields[0];
        }
        std::cout << reply << std::endl;
    }
    return 0;
}
