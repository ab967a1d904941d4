// Generations of objects: a snapshot can tell which objects were created
// between two advances by the generation id in the upper half of each tag.
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "agent/ModeControl.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "foundation/UptimeProvider.h"

static int ourCurrentGenerationId = 0;

static jint JNICALL tagWithGeneration(jlong classTag, jlong size, jlong* tagPtr, jint length, void* userData) {
    if (((uint64_t)*tagPtr >> 32) == 0) {
        uint64_t generation = (uint32_t) * (int*)userData;
        *tagPtr = (jlong)((uint64_t)(uint32_t)*tagPtr | (generation << 32));
    }
    return JVMTI_VISIT_OBJECTS;
}

void Generations::advanceGeneration(const LockHolder& lock, const ZString& description) {
    openGeneration(lock, description);
    jvmtiHeapCallbacks callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.heap_iteration_callback = tagWithGeneration;
    int generation = ourCurrentGenerationId;
    check_JVMTI_error(ourJVMTI->IterateThroughHeap(0, nullptr, &callbacks, &generation));
}

void Generations::openGeneration(const LockHolder& lock, const ZString& description) {
    DB* db = KZT_DB();
    GenerationTable* table = db->getGenerationTable();
    int index = table->nextIndex();
    KZT_ASSERT(index >= 0);
    ourCurrentGenerationId = index;
    GenerationRecord* record = table->getPtr(index, true);
    record->myDescription = StringPool::getStrID(lock, description);
    record->myUptime = ourUptimeProvider.getUptimeMs();
    record->myStamp = db->getCurrentGeneration();
}

int Generations::getCurrentGenerationID() {
    return ourCurrentGenerationId;
}
