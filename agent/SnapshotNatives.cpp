// The natives of snapshots and table streams: capture to a file, the live
// table delta over a socket, and the table of captured snapshots.
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "agent/NativeTable.h"
#include "db/DB.h"
#include "snapshot/FileBackedSocketWriter.h"
#include "snapshot/SnapshotFile.h"
#include "snapshot/TableStream.h"

#define NATIVE(name) Java_com_corvane_runtime_Callback_##name

extern "C" {

JNIEXPORT jstring JNICALL NATIVE(captureSnapshot)(JNIEnv* env, jclass, jstring path, jint progressSocket,
                                                  jlong flags) {
    KZT_NATIVE_BEGIN
    ZString error = SnapshotFile::captureSnapshotJVMTI(env, createZS(env, path), progressSocket, flags);
    return error.isEmpty() ? nullptr : newJavaString(env, error);
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(addSnapshotInfo)(JNIEnv* env, jclass, jstring path, jlong time) {
    KZT_NATIVE_BEGIN
    addSnapshotInfo(createZS(env, path), time);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jboolean JNICALL NATIVE(findSnapshot)(JNIEnv* env, jclass, jstring name) {
    KZT_NATIVE_BEGIN
    ZString text = createZS(env, name);
    LockHolder lock(&ourLock, LOCK_SITE);
    return SnapshotFile::findSnapshot(lock, text) != 0 ? JNI_TRUE : JNI_FALSE;
    KZT_NATIVE_END(env, JNI_FALSE)
}

JNIEXPORT jstring JNICALL NATIVE(getDatabaseStatistics)(JNIEnv* env, jclass) {
    KZT_NATIVE_BEGIN
    LockHolder lock(&ourLock, LOCK_SITE);
    return newJavaString(env, KZT_DB()->getStatistics());
    KZT_NATIVE_END(env, nullptr)
}

JNIEXPORT void JNICALL NATIVE(writeTables)(JNIEnv* env, jclass, jint socket, jint tableMask, jintArray jstamps) {
    KZT_NATIVE_BEGIN
    if (ourDB == nullptr) {
        throwException(env, "must run with the profiler agent");
        return;
    }
    ZVector<int> stamps;
    if (jstamps != nullptr) fillVectorFromJArray(env, jstamps, stamps);
    int since[FIXED_TABLE_COUNT] = {};
    for (int slot = 0; slot < FIXED_TABLE_COUNT && slot < stamps.getSize(); slot++) since[slot] = stamps[slot];
    // Gathered under the lock, sent by the destructor after it is released.
    FileBackedSocketWriter writer(socket, 0);
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        DB* db = ourDB;
        Progress progress(-1);
        {
            ParticipantsCapture capture(lock);
            writeTables(lock, env, db, writer, tableMask, 0, 0, &progress, since, false);
        }
        writer.writeInt(-1);
        // Changes from now on are newer than this delta.
        db->advanceGeneration();
    }
    KZT_NATIVE_END(env, )
}

}  // extern "C"

static const JNINativeMethod ourSnapshotRows[] = {
    KZT_NATIVE_ROW(addSnapshotInfo, "(Ljava/lang/String;J)V"),
    KZT_NATIVE_ROW(captureSnapshot, "(Ljava/lang/String;IJ)Ljava/lang/String;"),
    KZT_NATIVE_ROW(findSnapshot, "(Ljava/lang/String;)Z"),
    KZT_NATIVE_ROW(getDatabaseStatistics, "()Ljava/lang/String;"),
    KZT_NATIVE_ROW(writeTables, "(II[I)V"),
};

KZT_NATIVE_GROUP(ourSnapshotNatives, ourSnapshotRows);
