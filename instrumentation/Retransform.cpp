// Classes handed back to the JVM to pass the hook again: those with large
// methods when tracing starts and stops, and on an attached agent those that
// were loaded before it came. RetransformClasses re-enters the hook on this
// thread, so it always runs without ourLock.
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/SignatureNames.h"
#include "instrumentation/Instrumentation.h"
#include "instrumentation/LoadedClasses.h"

void retransformClassesWithLargeMethods(JNIEnv* env) {
    {
        LockHolder holder(&ourLock, LOCK_SITE);
        if (ourClassesWithLargeMethods.getSize() == 0) return;
    }
    ChosenClasses chosen;
    {
        LockHolder holder(&ourLock, LOCK_SITE);
        chooseLoadedClasses(env, chosen, [](jclass, const ZString& name) {
            return ourClassesWithLargeMethods.contains(name);
        });
    }
    if (chosen.classes.isEmpty()) return;
    ZString text = ZString("Retransform LMC: ") + ZString::fromLong(chosen.classes.getSize());
    for (int i = 0; i < chosen.names.getSize(); i++) text += ZString("\n  ") + chosen.names[i];
    Logger::message(text);
    jvmtiError error = ourJVMTI->RetransformClasses(chosen.classes.getSize(), chosen.classes.getElements());
    if (error == JVMTI_ERROR_NONE) {
        Logger::message("Retransform LMC completed");
    } else {
        Logger::message(ZString("warning: retransform LMC failed: ") + getJvmtiErrorName(ourJVMTI, error));
        cleanupAfterRetransformClassesFailure(env);
    }
    chosen.release(env);
}

void retransformClassesLoadedBeforeAgentAttached(JNIEnv* env) {
    // The attach loads Callback before the classes are tagged, and tracing
    // redefines it just before this runs. A retransform would hand it back
    // to the JVM as first loaded, with the idle stubs, and nothing would be
    // recorded.
    static const ZString callback = ZString(CALLBACK_CLASS).replaceAll("/", ".");
    ChosenClasses chosen;
    {
        LockHolder holder(&ourLock, LOCK_SITE);
        jvmtiEnv* tags = ourJVMTI_ClassesLoadedBeforeAttach;
        if (tags == nullptr) return;
        chooseLoadedClasses(env, chosen, [tags](jclass klass, const ZString& name) {
            jlong tag = 0;
            if (tags->GetTag(klass, &tag) != JVMTI_ERROR_NONE || tag != 1 || name.equals(callback) ||
                shouldNeverRetransform(name))
                return false;
            tags->SetTag(klass, 0);
            return true;
        });
        ZVectorSafe<ZString> sorted = chosen.names;
        sorted.sort();
        ZString text = ZString("Classes to retransform: ") + ZString::fromLong(sorted.getSize()) +
                       " (loaded before agent attached)";
        for (int i = 0; i < sorted.getSize(); i++) text += ZString("\n  ") + sorted[i];
        Logger::message(text);
        // Only once: the tag space goes with its environment.
        tags->DisposeEnvironment();
        ourJVMTI_ClassesLoadedBeforeAttach = nullptr;
    }

    int total = chosen.classes.getSize();
    int batch = ourOptions.getInternalInt("_on_attach_retransform_batch_size", 0);
    if (batch < 1) {
        int parts = ourOptions.getInternalInt("_on_attach_retransform_batch_count", 10);
        if (parts < 1) parts = 1;
        batch = (total + parts - 1) / parts;
        if (batch < 1) batch = 1;
    }
    int pauseMs = ourOptions.getInternalInt("_on_attach_retransform_pause_ms", 0);
    Logger::message(ZString("Classes to retransform: ") + ZString::fromLong(total) + ", batch size: " + ZString::fromLong(batch));
    int batchNumber = 0;
    for (int done = 0; done < total;) {
        int size = total - done < batch ? total - done : batch;
        jvmtiError error = ourJVMTI->RetransformClasses(size, chosen.classes.getElements() + done);
        if (error != JVMTI_ERROR_NONE) {
            Logger::message(ZString("error: class retransform failed: ") + getJvmtiErrorName(ourJVMTI, error));
            cleanupAfterRetransformClassesFailure(env);
        }
        done += size;
        batchNumber++;
        Logger::message(ZString("Class retransform: ") + ZString::fromLong(batchNumber) + " done, " +
                        ZString::fromLong(total - done) + " remains");
        if (done < total && pauseMs > 0) {
            Logger::message(ZString("Class retransform: sleeping for ") + ZString::fromLong(pauseMs) + " ms...");
            usleep((useconds_t)pauseMs * 1000);
        }
    }
    chosen.release(env);
}
