#include "agent/NativeTable.h"

#include <cstdlib>
#include <cstring>

#include "foundation/ZVector.h"

static ZVector<const NativeGroup*, 16>& ourGroups = *new ZVector<const NativeGroup*, 16>();
static ZVector<JNINativeMethod, 128>& ourRows = *new ZVector<JNINativeMethod, 128>();

void addNativeGroup(const NativeGroup& group) {
    if (ourGroups.contains(&group)) return;
    ourGroups.push(&group);
    for (int i = 0; i < group.myCount; i++) ourRows.push(group.myRows[i]);
}

const JNINativeMethod* getAgentNativeMethods(int* count) {
    qsort(ourRows.getElements(), ourRows.getSize(), sizeof(JNINativeMethod), [](const void* a, const void* b) {
        return strcmp(((const JNINativeMethod*)a)->name, ((const JNINativeMethod*)b)->name);
    });
    *count = ourRows.getSize();
    return ourRows.getElements();
}
