// The probe activity map that the probe options fill, and the built-in
// probe list.
#include "services/Logger.h"
#include "services/Options.h"
#include "foundation/System.h"


// Built on first use and never destroyed, like ourOptions.
static ZStringMap<PROBE_ACTIVITY_MODE>& globalProbeModes() {
    static ZStringMap<PROBE_ACTIVITY_MODE>* map = new ZStringMap<PROBE_ACTIVITY_MODE>(64, PROBE_ACTIVITY_MODE_ON);
    return *map;
}

ZStringMap<PROBE_ACTIVITY_MODE>& ourProbe2ActivityMode = globalProbeModes();

const char* const ourBuiltInProbes[] = {
    "com.corvane.probes.builtin.AsyncChannels",
    "com.corvane.probes.builtin.AwtEvents",
    "com.corvane.probes.builtin.Cassandra",
    "com.corvane.probes.builtin.CassandraLW",
    "com.corvane.probes.builtin.ClassLoading",
    "com.corvane.probes.builtin.Databases",
    "com.corvane.probes.builtin.DatabasesLW",
    "com.corvane.probes.builtin.DirectoryStreams",
    "com.corvane.probes.builtin.Files",
    "com.corvane.probes.builtin.FilesLW",
    "com.corvane.probes.builtin.HBase",
    "com.corvane.probes.builtin.HBaseLW",
    "com.corvane.probes.builtin.JNDI",
    "com.corvane.probes.builtin.JPA_DataNucleus",
    "com.corvane.probes.builtin.JPA_EclipseLink",
    "com.corvane.probes.builtin.JPA_Hibernate",
    "com.corvane.probes.builtin.JPA_OpenJPA",
    "com.corvane.probes.builtin.JUnitTests",
    "com.corvane.probes.builtin.MongoDB",
    "com.corvane.probes.builtin.MongoDBLW",
    "com.corvane.probes.builtin.Processes",
    "com.corvane.probes.builtin.Servlets",
    "com.corvane.probes.builtin.ServletsLW",
    "com.corvane.probes.builtin.Sockets",
    "com.corvane.probes.builtin.SocketsLW",
    "com.corvane.probes.builtin.Sync",
    "com.corvane.probes.builtin.TestNG",
    "com.corvane.probes.builtin.Threads",
    nullptr,
};

// The heavier probes run only while automatic probes are active.
static const char* const AUTO_BUILTIN_PROBES[] = {
    "AsyncChannels", "Databases",       "DirectoryStreams", "MongoDB", "Cassandra",
    "HBase",         "JPA_Hibernate",   "JPA_EclipseLink",  "JPA_OpenJPA", "JPA_DataNucleus",
    "Files",         "JNDI",            "Servlets",         "Sockets",
};

void Options::setProbeActivityMode(const ZString& pattern, int mode) {
    KZT_ASSERT(mode >= PROBE_ACTIVITY_MODE_REMOVE && mode <= PROBE_ACTIVITY_MODE_AUTO);
    bool wildcard = pattern.indexOfChar('*') >= 0;
    // A user's own probe class enters the map this way.
    if (mode != PROBE_ACTIVITY_MODE_REMOVE && !wildcard) ourProbe2ActivityMode.put(pattern, PROBE_ACTIVITY_MODE_ON);

    ZVectorSafe<ZString> removed;
    for (int i = 0; i < ourProbe2ActivityMode.getSize(); i++) {
        const ZString& name = ourProbe2ActivityMode.keyAt(i);
        // The agent's own support probes must survive any wildcard.
        if (wildcard && name.startsWith(BUILTIN_PROBE_PACKAGE) && name.endsWith("Support")) continue;
        if (!wildcardMatchZS(pattern, name)) continue;
        if (mode == PROBE_ACTIVITY_MODE_REMOVE)
            removed.push(name);
        else
            ourProbe2ActivityMode.setValueAt(i, (PROBE_ACTIVITY_MODE)mode);
    }
    for (const ZString& name : removed) ourProbe2ActivityMode.remove(name);
}

void Options::addProbe(const ZString& name) {
    ourProbe2ActivityMode.put(name, PROBE_ACTIVITY_MODE_ON);
}

void Options::removeProbe(const ZString& name) {
    ourProbe2ActivityMode.remove(name);
}

void Options::addBuiltInProbes() {
    for (int i = 0; ourBuiltInProbes[i] != nullptr; i++) addProbe(ourBuiltInProbes[i]);
    for (const char* name : AUTO_BUILTIN_PROBES)
        setProbeActivityMode(ZString(BUILTIN_PROBE_PACKAGE) + name, PROBE_ACTIVITY_MODE_AUTO);
    setProbeActivityMode(ZString(BUILTIN_PROBE_PACKAGE) + "Sync", PROBE_ACTIVITY_MODE_OFF);
}

void Options::removeBuiltInProbes() {
    for (int i = 0; ourBuiltInProbes[i] != nullptr; i++) removeProbe(ourBuiltInProbes[i]);
}

ZString expandShortProbeName(const ZString& name) {
    if (name.startsWith(".")) return ZString(BUILTIN_PROBE_PACKAGE) + name.substring(1);
    return name;
}
