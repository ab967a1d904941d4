// Probes by class name: their classes, inner classes included, are searched
// on the probe class path (folders and archives) and compiled.
#include <minizip/unzip.h>

#include "foundation/System.h"
#include "probes/ClassLoadingProbe.h"
#include "probes/Probes.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/SharedConstants.h"

namespace {

// The wanted classes: dotted names and their internal forms.
struct WantedClasses {
    ZVectorSafe<ZString> names;
    ZVectorSafe<ZString> internalNames;
    ZVector<bool> found;

    // The index of the wanted class that `internalName` is or is an inner
    // class of; -1 for none.
    int indexOf(const ZString& internalName) const {
        for (int i = 0; i < internalNames.getSize(); i++) {
            const ZString& wanted = internalNames[i];
            if (internalName.equals(wanted)) return i;
            if (internalName.startsWith(wanted) && internalName.getLength() > wanted.getLength() &&
                internalName[wanted.getLength()] == '$') {
                return i;
            }
        }
        return -1;
    }
    bool allFound() const {
        for (int i = 0; i < found.getSize(); i++) {
            if (!found[i]) return false;
        }
        return true;
    }
};

void compile(const ZVector<unsigned char>& bytes, PROBE_STATUS status, ProbeCreationResult& result) {
    Probes::createProbeDescriptor(&bytes, status, &result, nullptr);
}

void searchFolder(const ZString& folder, WantedClasses& wanted, PROBE_STATUS status, ProbeCreationResult& result) {
    for (int i = 0; i < wanted.names.getSize(); i++) {
        if (wanted.found[i]) continue;
        const ZString& internalName = wanted.internalNames[i];
        int slash = internalName.lastIndexOfChar('/');
        ZString package = folder + "/" + (slash < 0 ? ZString() : internalName.substring(0, slash));
        ZString simpleName = slash < 0 ? internalName : internalName.substring(slash + 1);
        // The class itself, then its inner classes.
        ZVectorSafe<ZString> files;
        FileSearch::listFiles(package.c_str(), files);
        files.sort();
        ZVectorSafe<ZString> found;
        if (files.contains(simpleName + ".class")) found.push(simpleName + ".class");
        for (const ZString& file : files) {
            if (file.endsWith(".class") && file.startsWith(simpleName + "$")) found.push(file);
        }
        for (const ZString& file : found) {
            ZString path = package + "/" + file;
            ZVector<unsigned char> bytes;
            if (!readFile(path.c_str(), bytes)) {
                result.addError(ZString("failed to read ") + path);
                continue;
            }
            wanted.found[i] = true;
            compile(bytes, status, result);
        }
    }
}

}  // namespace

// Reads the archive's current entry in steps of 1024 bytes.
static bool unzipEntryToVector(unzFile archive, int size, ZVector<unsigned char>& bytes) {
    if (unzOpenCurrentFile(archive) != UNZ_OK) return false;
    bytes.clear();
    bytes.reserve(size > 0 ? size : 1);
    unsigned char buffer[1024];
    bool ok = true;
    for (;;) {
        int n = unzReadCurrentFile(archive, buffer, sizeof(buffer));
        if (n < 0) ok = false;
        if (n <= 0) break;
        int at = bytes.getSize();
        bytes.resize(at + n);
        memcpy(bytes.getElements() + at, buffer, n);
    }
    if (unzCloseCurrentFile(archive) != UNZ_OK) ok = false;
    return ok;
}

static void searchArchive(const ZString& path, WantedClasses& wanted, PROBE_STATUS status, ProbeCreationResult& result) {
    unzFile archive = unzOpen(path.c_str());
    if (archive == nullptr) return;
    // Classes found in an earlier element stay as they were found.
    ZVector<bool> foundBefore = wanted.found;
    char name[1024];
    for (int more = unzGoToFirstFile(archive); more == UNZ_OK; more = unzGoToNextFile(archive)) {
        unz_file_info info;
        if (unzGetCurrentFileInfo(archive, &info, name, sizeof(name), nullptr, 0, nullptr, 0) != UNZ_OK) break;
        ZString entry(name);
        if (!entry.endsWith(".class")) continue;
        int index = wanted.indexOf(entry.cutPostfix(".class"));
        if (index < 0 || foundBefore[index]) continue;
        ZVector<unsigned char> bytes;
        if (!unzipEntryToVector(archive, (int)info.uncompressed_size, bytes)) {
            result.addError(ZString("unzip failed: ") + entry + " in " + path);
            continue;
        }
        wanted.found[index] = true;
        compile(bytes, status, result);
    }
    unzClose(archive);
}

void Probes::createProbeDescriptors(const ZVectorSafe<ZString>& names, PROBE_STATUS status,
                                    ProbeCreationResult& result) {
    WantedClasses wanted;
    for (const ZString& name : names) {
        // The agent's own probe, with no class to look for.
        if (ClassLoadingProbe::isProbeName(name)) {
            LockHolder lock(&ourLock, LOCK_SITE);
            ClassLoadingProbe::createTopProbeByName(lock);
            continue;
        }
        wanted.names.push(name);
        wanted.internalNames.push(name.replaceAll(".", "/"));
        wanted.found.push(false);
    }
    // Searched in the order of the path; a class found once is not looked
    // for further on.
    for (int e = 0; e < ourProbeClassPathElements.getSize() && !wanted.allFound(); e++) {
        const ZString& element = ourProbeClassPathElements[e];
        if (FileSearch::isDirectory(element.c_str())) {
            searchFolder(element, wanted, status, result);
        } else {
            searchArchive(element, wanted, status, result);
        }
    }
    for (int i = 0; i < wanted.names.getSize(); i++) {
        if (!wanted.found[i]) result.addError(wanted.names[i], ZString("class not found"));
    }
    result.logMissingInnerClassesWarning();
}

// The classes of the runtime archive, first on the probe class path, in
// dotted form: the built-in probes that it does not carry are not looked for.
static ZVectorSafe<ZString> shippedClasses() {
    ZVectorSafe<ZString> names;
    if (ourProbeClassPathElements.isEmpty()) return names;
    unzFile archive = unzOpen(ourProbeClassPathElements[0].c_str());
    if (archive == nullptr) return names;
    char name[1024];
    unz_file_info info;
    for (int more = unzGoToFirstFile(archive); more == UNZ_OK; more = unzGoToNextFile(archive)) {
        if (unzGetCurrentFileInfo(archive, &info, name, sizeof(name), nullptr, 0, nullptr, 0) != UNZ_OK) break;
        ZString entry(name);
        if (entry.endsWith(".class")) names.push(entry.cutPostfix(".class").replaceAll("/", "."));
    }
    unzClose(archive);
    return names;
}

void Probes::createProbesAtStart(bool attaching) {
    if (ourProbe2ActivityMode.getSize() == 0) return;
    ZVectorSafe<ZString> names;
    ZVectorSafe<ZString> shipped;
    bool shippedRead = false;
    for (int i = 0; i < ourProbe2ActivityMode.getSize(); i++) {
        const ZString& name = ourProbe2ActivityMode.keyAt(i);
        bool own = ClassLoadingProbe::isProbeName(name);
        if (!own && name.startsWith(BUILTIN_PROBE_PACKAGE)) {
            if (!shippedRead) shipped = shippedClasses();
            shippedRead = true;
            if (!shipped.contains(name)) continue;
        }
        names.push(name);
    }
    if (names.isEmpty()) return;
    LockHolder lock(&ourLock, LOCK_SITE);
    ProbeCreationResult result;
    try {
        createProbeDescriptors(names, attaching ? PROBE_STATUS_NEW : PROBE_STATUS_SETTLED, result);
        if (result.isOK()) addProbes(result);
    } catch (KZTRuntimeException&) {
        Logger::exceptionCaught(__FILE__, __LINE__);
        return;
    }
    // The author of a broken probe reads the errors on the console too.
    for (const ZString& line : result.getErrors()) Logger::message(line, stderr);
    if (result.isOK()) result.logRegisteredProbeClasses();
}
