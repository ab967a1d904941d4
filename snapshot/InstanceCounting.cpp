#include "snapshot/InstanceCounting.h"

#include <cstring>

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "db/SignatureNames.h"

// Row of "instance_count" by tag, with the class name: a class keeps its
// row for the life of the process. The names are pinned in the string pool:
// a class may go without a row for many captures, while the collector runs.
static ZMap<int, int>& ourClassNames = *new ZMap<int, int>(10000);

bool InstanceCounting::isWanted(bool memorySnapshot) {
    return memorySnapshot || !ourOptions.isInternalOption("_no_instance_count_on_perf_snapshot_capture");
}

static jint JNICALL countObject(jlong classTag, jlong size, jlong* tagPtr, jint length, void* userData) {
    if (classTag <= 0) return JVMTI_VISIT_OBJECTS;
    ZMap<int, InstanceCounting::SizeAndCount>& counts = *(ZMap<int, InstanceCounting::SizeAndCount>*)userData;
    InstanceCounting::SizeAndCount* entry = counts.getPtr((int)classTag);
    if (entry == nullptr) {
        counts.put((int)classTag, {size, 1});
    } else {
        entry->mySize += size;
        entry->myCount++;
    }
    return JVMTI_VISIT_OBJECTS;
}

void InstanceCounting::gatherClassInstanceStatistics(const LockHolder& lock, JNIEnv* env) {
    jvmtiEnv* jvmti = ourJVMTI_ClassInstanceStats;
    if (jvmti == nullptr) return;
    InstanceCountTable* table = KZT_DB()->getInstanceCountTable();
    jint count = 0;
    jclass* classes = nullptr;
    check_JVMTI_error(jvmti->GetLoadedClasses(&count, &classes));
    for (int i = 0; i < count; i++) {
        jlong tag = 0;
        jvmti->GetTag(classes[i], &tag);
        if (tag == 0) {
            tag = table->nextIndex();
            check_JVMTI_error(jvmti->SetTag(classes[i], tag));
            ZString signature = getClassNameJvmti(classes[i], __FILE__);
            ZString name = convertClassSignatureToFullName(signature.c_str());
            ourClassNames.put((int)tag, StringPool::getStrIDImpl(lock, name.c_str(), true));
        }
        env->DeleteLocalRef(classes[i]);
    }
    jvmti->Deallocate((unsigned char*)classes);
    jvmtiHeapCallbacks callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.heap_iteration_callback = countObject;
    check_JVMTI_error(jvmti->IterateThroughHeap(0, nullptr, &callbacks, &myCounts));
}

void InstanceCounting::updateDatabase(const LockHolder& lock, DB* db) {
    InstanceCountTable* table = db->getInstanceCountTable();
    int generation = db->getCurrentGeneration();
    for (int slot = 0; slot < ourClassNames.getCapacity(); slot++) {
        if (!ourClassNames.isFull(slot)) continue;
        int row = ourClassNames.keyAt(slot);
        SizeAndCount counted = myCounts.get(row, SizeAndCount{0, 0});
        InstanceCountRecord* record = table->getPtr(row, true);
        // A class without instances keeps its row at zero, so that a delta shows it emptied.
        if (record->myStamp != 0 && record->myCount == counted.myCount && record->mySize == counted.mySize) continue;
        if (record->myStamp == 0 && counted.myCount == 0) continue;
        record->myClass = ourClassNames.valueAt(slot);
        record->myCount = counted.myCount;
        record->mySize = counted.mySize;
        record->myStamp = generation;
    }
}
