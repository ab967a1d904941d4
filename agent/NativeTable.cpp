#include "agent/NativeTable.h"

#include <cstdlib>
#include <cstring>

#include "foundation/ZVector.h"

// Filled by static constructors before any JVM call reaches the library.
static ZVector<JNINativeMethod, 128>& groupRows() {
    static ZVector<JNINativeMethod, 128>* rows = new ZVector<JNINativeMethod, 128>();
    return *rows;
}

NativeGroup::NativeGroup(const JNINativeMethod* rows, int count) {
    for (int i = 0; i < count; i++) groupRows().push(rows[i]);
}

const JNINativeMethod* getAgentNativeMethods(int* count) {
    ZVector<JNINativeMethod, 128>& rows = groupRows();
    qsort(rows.getElements(), rows.getSize(), sizeof(JNINativeMethod), [](const void* a, const void* b) {
        return strcmp(((const JNINativeMethod*)a)->name, ((const JNINativeMethod*)b)->name);
    });
    *count = rows.getSize();
    return rows.getElements();
}
