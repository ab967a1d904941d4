#include "db/ZFrameStorage.h"

#include "services/Logger.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "foundation/ZMap.h"

int ownLineNumberMethod = 0;

static FrameRecord* getFrameRecord(int frame) {
    KZT_ASSERT_NOT_NULL(ourFrameTable);
    return ourFrameTable->getPtr(frame, true);
}

// Children of a parent with this many are also found by hash: a dispatcher
// with hundreds of callees would otherwise cost a long walk a lookup.
static const int WIDE_PARENT_CHILDREN = 16;
// (parent, code point) to child, and parent to its last child, for wide parents.
static ZMap<long, int>& ourWideChildren = *new ZMap<long, int>(1024);
static ZMap<int, int>& ourLastWideChild = *new ZMap<int, int>(64);

static long childKey(int parentFrame, int codePoint) {
    return (long)(((uint64_t)(uint32_t)parentFrame << 32) | (uint32_t)codePoint);
}

// A new frame as the last child; `last` is the present last child or null.
// Records never move, so the pointers stay valid while the table grows.
static int appendChild(FrameTable* table, int parentFrame, FrameRecord* parent, FrameRecord* last, int codePoint) {
    int generation = ourDB->getCurrentGeneration();
    int frame = table->nextIndex();
    FrameRecord* created = table->getPtr(frame, true);
    created->myParent = parentFrame;
    created->myCodePoint = codePoint;
    created->myFirstChild = -1;
    created->myNextSibling = -1;
    created->myStamp = generation;
    parent->myStamp = generation;
    parent->myChildCount++;
    if (last == nullptr) {
        parent->myFirstChild = frame;
    } else {
        last->myNextSibling = frame;
        last->myStamp = generation;
    }
    return frame;
}

static void indexChildren(FrameTable* table, int parentFrame, FrameRecord* parent) {
    int last = -1;
    for (int child = parent->myFirstChild; child != -1; child = table->getPtr(child, true)->myNextSibling) {
        ourWideChildren.put(childKey(parentFrame, table->getPtr(child, true)->myCodePoint), child);
        last = child;
    }
    ourLastWideChild.put(parentFrame, last);
}

int ZFrameStorage::getChild(const LockHolder&, int parentFrame, int codePoint) {
    FrameTable* table = ourFrameTable;
    KZT_ASSERT_NOT_NULL(table);
    FrameRecord* parent = table->getPtr(parentFrame, true);
    if (parent->myChildCount >= WIDE_PARENT_CHILDREN) {
        long key = childKey(parentFrame, codePoint);
        int* known = ourWideChildren.getPtr(key);
        if (known != nullptr) return *known;
        FrameRecord* last = table->getPtr(ourLastWideChild.get(parentFrame), true);
        int frame = appendChild(table, parentFrame, parent, last, codePoint);
        ourWideChildren.put(key, frame);
        ourLastWideChild.put(parentFrame, frame);
        return frame;
    }
    FrameRecord* last = nullptr;
    for (int child = parent->myFirstChild; child != -1;) {
        FrameRecord* record = table->getPtr(child, true);
        if (record->myCodePoint == codePoint) return child;
        last = record;
        child = record->myNextSibling;
    }
    int frame = appendChild(table, parentFrame, parent, last, codePoint);
    if (parent->myChildCount == WIDE_PARENT_CHILDREN) indexChildren(table, parentFrame, parent);
    return frame;
}

void ZFrameStorage::clearWideChildIndex() {
    ourWideChildren.clear();
    ourLastWideChild.clear();
}

int ZFrameStorage::getMethodByFrame(int frame) {
    return CodePointStorage::getMethod(getFrameRecord(frame)->myCodePoint);
}

int ZFrameStorage::getParent(int frame) {
    return getFrameRecord(frame)->myParent;
}

bool ZFrameStorage::isRecursive(const LockHolder&, int frame) {
    if (frame < 1) return false;
    int method = getMethodByFrame(frame);
    for (int above = getParent(frame); above >= 1; above = getParent(above)) {
        if (getMethodByFrame(above) == method) return true;
    }
    return false;
}

static bool isProbeCallbackFrame(int frame) {
    return (ZMethod::getFlags(ZFrameStorage::getMethodByFrame(frame)) & METHOD_FLAG_PROBE_CALLBACK) != 0;
}

int ZFrameStorage::findInstrumentedMethod(const LockHolder&, int frame) {
    if (frame < 1) return 0;
    int callback = frame;
    while (callback >= 1 && !isProbeCallbackFrame(callback)) callback = getParent(callback);
    if (callback < 1) return frame;
    int above = callback;
    while (above >= 1 && isProbeCallbackFrame(above)) above = getParent(above);
    return above >= 1 ? above : 0;
}

static void appendStringOr(const LockHolder& lock, ZString& text, int strId, const char* fallback) {
    const char* value = StringPool::getString(lock, strId);
    text.append(value != nullptr ? value : fallback);
}

// "<class>.<name><parameters>"
static void appendMethodName(const LockHolder& lock, ZString& text, int method) {
    MethodRecord* record = ZMethod::getRecord(method);
    appendStringOr(lock, text, record != nullptr ? record->myClass : 0, "<no class>");
    text.appendChar('.');
    appendStringOr(lock, text, record != nullptr ? record->myName : 0, "<no name>");
    appendStringOr(lock, text, record != nullptr ? record->myParameters : 0, "<no params>");
}

ZString ZFrameStorage::getStackTraceByFrame(const LockHolder& lock, int frame) {
    ZString text("stack for frame ");
    text.appendLong(frame).appendChar(':');
    for (int current = frame; current >= 1; current = getParent(current)) {
        int method = getMethodByFrame(current);
        text.append("\n #").appendLong(method).appendChar(' ');
        appendMethodName(lock, text, method);
    }
    return text;
}

ZString ZFrameStorage::getMethodDescription(const LockHolder& lock, int method) {
    ZString text("method #");
    text.appendLong(method).append(": ");
    appendMethodName(lock, text, method);
    return text;
}

ZString ZFrameStorage::getMethodDescriptionByFrame(const LockHolder& lock, int frame) {
    return getMethodDescription(lock, getMethodByFrame(frame));
}

void ZFrameStorage::resetForTests() {
    ownLineNumberMethod = 0;
    clearWideChildIndex();
}
