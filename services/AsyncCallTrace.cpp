#include "services/AsyncCallTrace.h"

#include <dlfcn.h>

namespace {

struct CallTrace {
    JNIEnv* myEnv;
    jint myFrameCount;
    AsyncCallFrame* myFrames;
};

typedef void (*AsyncGetCallTraceFunction)(CallTrace* trace, jint depth, void* context);

AsyncGetCallTraceFunction lookUp() {
    void* function = dlsym(RTLD_DEFAULT, "AsyncGetCallTrace");
    if (function == nullptr) {
        void* jvm = dlopen("libjvm.so", RTLD_LAZY | RTLD_NOLOAD);
        if (jvm != nullptr) function = dlsym(jvm, "AsyncGetCallTrace");
    }
    return (AsyncGetCallTraceFunction)function;
}

}  // namespace

int AsyncCallTrace::readCurrentThread(JNIEnv* env, int maxDepth, AsyncCallFrame* frames) {
    static const AsyncGetCallTraceFunction function = lookUp();
    if (function == nullptr || env == nullptr || maxDepth < 1) return -1;
    // No signal context: the walk starts at the thread's last Java frame,
    // which a thread in native code or in a JVMTI callback always has.
    CallTrace trace = {env, 0, frames};
    function(&trace, maxDepth, nullptr);
    if (trace.myFrameCount < 1) return -1;
    for (int i = 0; i < trace.myFrameCount; i++) {
        if (frames[i].myMethodId == nullptr) return -1;
    }
    return trace.myFrameCount;
}
