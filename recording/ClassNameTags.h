// Class names as pinned string indices, cached as the tags of the classes
// in a JVMTI environment of their own, so that an event reads one tag and
// takes ourLock only on the first object of a class.
#pragma once

#include <jni.h>
#include <jvmti.h>

// The string index of the dotted name of `klass`, tagging the class with it
// in `tags`; 0 when the class can't be named or its tag can't be read.
int getTaggedClassNameStrID(jvmtiEnv* tags, jclass klass);
// The same for the class of `object`; 0 for null.
int getTaggedObjectClassNameStrID(jvmtiEnv* tags, JNIEnv* env, jobject object);
// Forgets every tag of `tags`, objects and classes alike.
void clearAllTags(jvmtiEnv* tags);
