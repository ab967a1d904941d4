#include "recording/ClassNameTags.h"

#include "db/SignatureNames.h"
#include "db/StringPool.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"

int getTaggedClassNameStrID(jvmtiEnv* tags, jclass klass) {
    if (tags == nullptr || klass == nullptr) return 0;
    jlong tag = 0;
    if (tags->GetTag(klass, &tag) != JVMTI_ERROR_NONE) return 0;
    if (tag > 0) return (int)tag;
    ZString signature = getClassNameJvmti(klass, __FILE__);
    if (signature.isEmpty()) return 0;
    ZString name = convertClassSignatureToFullName(signature.c_str());
    int id;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        // Pinned: the index lives on in the tag between events.
        id = StringPool::getStrIDImpl(lock, name.c_str(), true);
    }
    check_JVMTI_error(tags->SetTag(klass, id));
    return id;
}

int getTaggedObjectClassNameStrID(jvmtiEnv* tags, JNIEnv* env, jobject object) {
    if (object == nullptr) return 0;
    jclass klass = env->GetObjectClass(object);
    int id = getTaggedClassNameStrID(tags, klass);
    env->DeleteLocalRef(klass);
    return id;
}

static jint JNICALL forgetTag(jlong, jlong, jlong* tag, jint, void*) {
    *tag = 0;
    return 0;
}

void clearAllTags(jvmtiEnv* tags) {
    if (tags == nullptr) return;
    jvmtiHeapCallbacks callbacks = {};
    callbacks.heap_iteration_callback = forgetTag;
    check_JVMTI_error(tags->IterateThroughHeap(JVMTI_HEAP_FILTER_UNTAGGED, nullptr, &callbacks, nullptr));
}
