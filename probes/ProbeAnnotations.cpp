#include "probes/ProbeAnnotations.h"

#include "classfile/ClassFile.h"

namespace {

const char* const ANNOTATION_PREFIX = "Lcom/corvane/probes/";

// The simple name of a probe annotation type, or null for any other type.
const char* probeAnnotationName(const ZString& type) {
    if (!type.startsWith(ANNOTATION_PREFIX) || !type.endsWith(";")) return nullptr;
    return type.c_str() + strlen(ANNOTATION_PREFIX);
}

bool isNamed(const char* name, const char* expected) {
    return name != nullptr && strncmp(name, expected, strlen(expected)) == 0 && name[strlen(expected)] == ';';
}

const AttributeInfo* findAttribute(ZVector<AttributeInfo*, 10>& attributes, const ConstantPool* pool,
                                   const char* name) {
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getName(pool).equals(name)) return attributes[i];
    }
    return nullptr;
}

// The single element pair "value", with its tag checked.
void readValuePair(DataInput& in, const ConstantPool* pool, int tag) {
    KZT_ASSERT(in.readUnsignedShort() == 1);
    KZT_ASSERT(ConstantPoolInfo::getUtf8(pool, in.readUnsignedShort()).equals("value"));
    KZT_ASSERT(in.readUnsignedByte() == tag);
}

void readAnnotationStringArray(DataInput& in, const ConstantPool* pool, ZVectorSafe<ZString>& values) {
    readValuePair(in, pool, '[');
    int count = in.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        KZT_ASSERT(in.readUnsignedByte() == 's');
        values.push(ConstantPoolInfo::getUtf8(pool, in.readUnsignedShort()));
    }
}

ZString readAnnotationStringParameter(DataInput& in, const ConstantPool* pool) {
    readValuePair(in, pool, 's');
    return ConstantPoolInfo::getUtf8(pool, in.readUnsignedShort());
}

int getIntValue(DataInput& in, const ConstantPool* pool) {
    readValuePair(in, pool, 'I');
    return static_cast<ConstantIntInfo*>(ConstantPoolInfo::getEntry(pool, in.readUnsignedShort(), ConstantPoolInfo::INTEGER))
        ->getValue();
}

struct ParameterKindName {
    const char* name;
    CallbackParameterKind kind;
};

const ParameterKindName PARAMETER_KINDS[] = {
    {"Param", CPK_PARAM},
    {"Params", CPK_PARAMS},
    {"This", CPK_THIS},
    {"ReturnValue", CPK_RETURN_VALUE},
    {"ThrownException", CPK_THROWN_EXCEPTION},
    {"OnEnterResult", CPK_ON_ENTER_RESULT},
    {"MethodTimeMs", CPK_METHOD_TIME_MS},
    {"MethodName", CPK_METHOD_NAME},
    {"MethodSignature", CPK_METHOD_SIGNATURE},
    {"MethodParameterTypes", CPK_METHOD_PARAMETER_TYPES},
    {"ClassRef", CPK_CLASS_REF},
};

}  // namespace

void fillMethodPatterns(const ClassFile* classFile, ProbeClassAnnotations& annotations) {
    ClassFile* cf = const_cast<ClassFile*>(classFile);
    const ConstantPool* pool = cf->getConstantPool();
    const AttributeInfo* attribute = findAttribute(cf->getAttributes(), pool, "RuntimeInvisibleAnnotations");
    if (attribute == nullptr) return;
    const AnnotationsAttribute* raw = static_cast<const AnnotationsAttribute*>(attribute);
    DataInput in(raw->getBytes(), raw->getLength());
    int count = in.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        const char* name = probeAnnotationName(ConstantPoolInfo::getUtf8(pool, in.readUnsignedShort()));
        if (isNamed(name, "MethodPattern")) {
            readAnnotationStringArray(in, pool, annotations.methodPatterns);
        } else if (isNamed(name, "RetransformIfInstanceOf")) {
            readAnnotationStringArray(in, pool, annotations.retransformClasses);
        } else if (isNamed(name, "InstanceOf")) {
            annotations.instanceOf = readAnnotationStringParameter(in, pool).replaceAll(".", "/");
        } else {
            if (isNamed(name, "DiscardThrownException")) annotations.discardThrownException = true;
            AnnotationsAttribute::skipAnnotationPairs(in);
        }
    }
}

void fillCallbackParameters(const MethodInfo* method, CallbackParameters& parameters) {
    ZVectorSafe<ZString> types;
    method->getParameterTypes(types);
    for (const ZString& type : types) {
        KZT_ASSERT(!type.isEmpty());
        parameters.push(CallbackParameter{type, CPK_NOT_ANNOTATED, -1, false});
    }
    MethodInfo* m = const_cast<MethodInfo*>(method);
    const ConstantPool* pool = m->getConstantPool();
    const AttributeInfo* attribute =
        findAttribute(m->getAttributes(), pool, "RuntimeInvisibleParameterAnnotations");
    if (attribute == nullptr) return;
    const ParameterAnnotationsAttribute* raw = static_cast<const ParameterAnnotationsAttribute*>(attribute);
    DataInput in(raw->getBytes(), raw->getLength());
    int count = in.readUnsignedByte();
    for (int p = 0; p < count && p < parameters.getSize(); p++) {
        CallbackParameter& parameter = parameters[p];
        int annotationCount = in.readUnsignedShort();
        for (int a = 0; a < annotationCount; a++) {
            const char* name = probeAnnotationName(ConstantPoolInfo::getUtf8(pool, in.readUnsignedShort()));
            if (isNamed(name, "Out")) {
                parameter.isOut = true;
                AnnotationsAttribute::skipAnnotationPairs(in);
                continue;
            }
            const ParameterKindName* found = nullptr;
            for (const ParameterKindName& k : PARAMETER_KINDS) {
                if (isNamed(name, k.name)) found = &k;
            }
            if (found == nullptr) {
                AnnotationsAttribute::skipAnnotationPairs(in);
                continue;
            }
            if (parameter.kind != CPK_NOT_ANNOTATED) {
                parameter.kind = CPK_SEVERAL;
            } else {
                parameter.kind = found->kind;
            }
            if (found->kind == CPK_PARAM) {
                int index = getIntValue(in, pool);
                if (parameter.kind == CPK_PARAM) parameter.index = index;
            } else {
                AnnotationsAttribute::skipAnnotationPairs(in);
            }
        }
    }
}
