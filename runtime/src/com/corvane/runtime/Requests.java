package com.corvane.runtime;

import java.io.DataOutputStream;
import java.io.File;
import java.io.IOException;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Every request type of the control protocol and its handler: the one place
 * that maps a packet to what it does. A handler reads its payload, then
 * answers under the shared lock ({@link Request#locked}) or, for long
 * streams, straight onto the connection ({@link Request#streamed}).
 */
final class Requests {
    interface Handler {
        void handle(Request request) throws IOException;
    }

    private static final String ALLOCATIONS = "Allocation recording";
    private static final String MONITORS = "Monitor profiling";
    private static final String EXCEPTIONS = "Exception profiling";
    private static final String EVENT_TABLES = "Event tables";
    private static final String PROBES = "Probes";
    /** The activity modes of probes, off, on and auto, in the order the UI lists them. */
    private static final int[] PROBE_ACTIVITY_MODES = {0, 1, 2};
    private static final String[] PROBE_ACTIVITY_MODE_NAMES = {"Off", "On", "Auto"};
    private static final String BUILTIN_PROBE_PACKAGE = "com.corvane.probes.builtin";
    private static final int EVENT_TABLE_LAST_ID = 127;
    /** More probes or probe classes than any UI sends in one request. */
    private static final int MAX_PROBES_A_REQUEST = 1 << 16;

    private static final Map<Integer, Handler> ourHandlers = new HashMap<Integer, Handler>();

    private Requests() {
    }

    static void on(int type, Handler handler) {
        ourHandlers.put(type, handler);
    }

    /** Runs the request; an unknown type gets the version mismatch error. */
    static void dispatch(Request request) throws IOException {
        Handler handler = ourHandlers.get(request.myType);
        if (handler == null) {
            final String message = Protocol.composeUnknownPacketTypeError(request.myType);
            Callback.messageToLogFile("error: " + message);
            request.streamed(out -> Request.writeError(out, message));
            return;
        }
        handler.handle(request);
    }

    /** A request without payload whose answer is the standard one after {@code action}. */
    private interface Action {
        void run();
    }

    private static void simple(int type, final String feature, final Action action) {
        on(type, r -> r.locked(feature, out -> {
            action.run();
            Request.writeOk(out);
        }));
    }

    /** A request with one string whose answer is the standard one after {@code action}. */
    private interface TextAction {
        void run(String text);
    }

    private static void withText(int type, final String feature, final TextAction action) {
        on(type, r -> {
            final String text = r.readString();
            r.locked(feature, out -> {
                action.run(text);
                Request.writeOk(out);
            });
        });
    }

    static {
        on(Protocol.PACKET_GET_STATUS_REQ, r -> r.locked("Status", out -> {
            long status = Callback.getStatus();
            if (TelemetryThread.ourDeadlocksDetected) {
                status |= SharedConstants.DEADLOCK_DETECTED;
            }
            Request.writeOk(out);
            out.writeLong(status);
        }));
        on(Protocol.PACKET_GET_AGENT_INFO_REQ, r -> r.locked("Agent information", out -> {
            Packet.writeHeader(out, Protocol.PACKET_OK_RESP);
            out.writeInt(Protocol.PROTOCOL_VERSION);
            Packet.writeString(out, Protocol.PRODUCT_VERSION);
            out.writeLong(Callback.getCapabilities());
            Packet.writeString(out, Core.ourSessionName);
            Packet.writeString(out, Core.ourSnapshotNameFormat);
            out.writeLong(Core.ourSessionId);
            Packet.writeString(out, "");
            Packet.writeString(out, Core.getSnapshotDirectory().getAbsolutePath());
            out.writeInt(Callback.getPid());
            out.writeInt(Core.ourTelemetryLimit);
        }));

        // CPU profiling
        on(Protocol.PACKET_START_CPU_PROFILING_REQ, r -> {
            final long mode = r.readLong();
            final String settings = r.readString();
            r.locked("CPU profiling", out -> Request.writeOkOrError(out, Core.startCpuProfilingSafe(mode, settings)));
        });
        simple(Protocol.PACKET_STOP_CPU_PROFILING_REQ, "CPU profiling", () -> Callback.stopCpuProfiling(true));
        simple(Protocol.PACKET_CLEAR_CPU_DATA, "CPU profiling", Callback::clearCpuData);

        // Allocation recording
        on(Protocol.PACKET_START_ALLOCATION_RECORDING_REQ, r -> {
            final int recordEach = r.readInt();
            final int sizeLimit = r.readInt();
            final long mode = r.readLong();
            r.locked(ALLOCATIONS, out -> Request.writeOkOrError(out,
                    Callback.startAllocationRecording(recordEach, sizeLimit, mode, null)));
        });
        simple(Protocol.PACKET_STOP_ALLOCATION_RECORDING_REQ, ALLOCATIONS, Callback::stopAllocationRecording);
        simple(Protocol.PACKET_CLEAR_ALLOCATION_DATA, ALLOCATIONS, Callback::clearAllocationData);
        on(Protocol.PACKET_ALLOCATION_RECORDING_SETTINGS_GET_REQ, r -> r.locked(ALLOCATIONS, out -> {
            Request.writeOk(out);
            out.writeInt(Callback.getAllocationRecordingSettingsRecordEach());
            out.writeInt(Callback.getAllocationRecordingSettingsSizeLimit());
        }));

        // Monitors, exceptions, stack telemetry
        on(Protocol.PACKET_START_MONITOR_PROFILING,
                r -> r.locked(MONITORS, out -> Request.writeOkOrError(out, Callback.startMonitorProfiling())));
        simple(Protocol.PACKET_STOP_MONITOR_PROFILING, MONITORS, Callback::stopMonitorProfiling);
        simple(Protocol.PACKET_CLEAR_MONITOR_DATA, MONITORS, Callback::clearMonitorData);
        simple(Protocol.PACKET_START_EXCEPTION_PROFILING, EXCEPTIONS, Callback::startExceptionProfiling);
        simple(Protocol.PACKET_STOP_EXCEPTION_PROFILING, EXCEPTIONS, Callback::stopExceptionProfiling);
        simple(Protocol.PACKET_CLEAR_EXCEPTIONS, EXCEPTIONS, Callback::clearExceptions);
        simple(Protocol.PACKET_START_STACK_TELEMETRY, "Stack telemetry", Callback::startStackTelemetry);
        simple(Protocol.PACKET_STOP_STACK_TELEMETRY, "Stack telemetry", Callback::stopStackTelemetry);

        // Memory and generations
        on(Protocol.PACKET_FORCE_GC_REQ, r -> r.locked("Garbage collection", out -> {
            long before = usedMemory();
            Callback.forceGc();
            long after = usedMemory();
            Request.writeOk(out);
            out.writeLong(before);
            out.writeLong(after);
        }));
        withText(Protocol.PACKET_ADVANCE_GENERATION_REQ, "Generations", Callback::advanceGeneration);
        on(Protocol.PACKET_OOME_DUMPER_GET_STATUS_REQ, r -> r.locked("OOME dumper", out -> {
            Request.writeOk(out);
            out.writeInt(Core.getOomeDumperStatus());
        }));

        // Threads
        on(Protocol.PACKET_GET_JVM_THREAD_DUMP_REQ, r -> r.locked("Thread dump", out -> {
            String dump = TelemetryThread.processGetJvmThreadDumpImpl();
            Request.writeOk(out);
            Packet.writeString(out, dump);
        }));
        on(Protocol.PACKET_GET_FROZEN_THREADS, r -> {
            final long thresholdMs = r.readLong();
            r.locked("Frozen threads", out -> {
                int[] rows = Callback.getFrozenThreadsImpl(thresholdMs);
                Request.writeOk(out);
                int count = rows == null ? 0 : rows.length / 4;
                out.writeInt(count);
                for (int i = 0; i < count; i++) {
                    out.writeInt(rows[4 * i]);
                    out.writeInt(rows[4 * i + 1]);
                    out.writeLong((rows[4 * i + 2] & 0xFFFFFFFFL) | ((long) rows[4 * i + 3] << 32));
                }
            });
        });

        // Snapshots and tables
        on(Protocol.PACKET_CAPTURE_SNAPSHOT_REQ, r -> {
            final long flags = r.readLong();
            final String nameFormat = r.readString();
            final String directory = r.readString();
            final int progress = r.socketDescriptor();
            r.locked("Snapshots", out -> {
                String[] path = new String[1];
                String error = Core.captureSnapshot1(directory, progress, flags, nameFormat, path);
                if (error != null) {
                    Request.writeError(out, error);
                    return;
                }
                Request.writeOk(out);
                Packet.writeString(out, path[0]);
            });
        });
        on(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, r -> SnapshotTransfer.transfer(r, r.readString(), false));
        on(Protocol.PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ, r -> SnapshotTransfer.transfer(r, r.readString(), true));
        on(Protocol.PACKET_GET_TRANSFERABLE_SNAPSHOTS, r -> r.locked("Snapshots", out -> {
            List<File> files = Core.getTransferableSnapshots();
            Request.writeOk(out);
            out.writeInt(files.size());
            for (File file : files) {
                Packet.writeString(out, file.getAbsolutePath());
                out.writeInt(SnapshotTransfer.digest(file));
                out.writeLong(file.length());
                out.writeLong(file.lastModified());
            }
        }));
        on(Protocol.PACKET_UPDATE_DATABASE_TABLES, r -> {
            final int mask = r.readInt();
            final int[] stamps = new int[32];
            for (int bit = 0; bit < 32; bit++) {
                if ((mask & (1 << bit)) != 0) {
                    stamps[bit] = r.readInt();
                }
            }
            final int socket = r.socketDescriptor();
            r.streamed(out -> {
                if (socket < 0) {
                    Request.writeError(out, "Cannot send tables: the connection has no descriptor");
                    return;
                }
                Request.writeOk(out);
                out.flush();
                Callback.writeTables(socket, mask, stamps);
            });
        });
        on(Protocol.PACKET_GET_DATABASE_STATISTICS, r -> r.locked("Database statistics", out -> {
            String statistics = Callback.getDatabaseStatistics();
            Request.writeOk(out);
            Packet.writeString(out, statistics);
        }));

        // Event tables and messages
        on(Protocol.PACKET_UPDATE_EVENT_TABLE_INFO, r -> {
            final int firstId = r.readInt();
            r.locked(EVENT_TABLES, out -> {
                Request.writeOk(out);
                for (int id = Math.max(firstId, 0); id <= EVENT_TABLE_LAST_ID; id++) {
                    String description = Callback.getEventTableDescription(id);
                    if (description != null) {
                        out.writeInt(id);
                        Packet.writeString(out, description);
                    }
                }
                out.writeInt(-1);
            });
        });
        withText(Protocol.PACKET_CLEAR_EVENT_TABLES, EVENT_TABLES, Callback::clearEventTables);
        on(Protocol.PACKET_GET_TOP_EVENT_TABLE_NAMES, r -> r.locked(EVENT_TABLES, out -> {
            String names = Callback.getTopEventTableNames();
            Request.writeOk(out);
            Packet.writeString(out, names);
        }));
        on(Protocol.PACKET_MESSAGE, r -> {
            final String category = r.readString();
            final String text = r.readString();
            final String detail = r.readString();
            r.locked("Messages", out -> {
                Callback.messageToTable(category, text, detail);
                Request.writeOk(out);
            });
        });

        // Probes and triggers
        on(Protocol.PACKET_GET_PROBES, r -> r.locked(PROBES, out -> {
            Request.writeOk(out);
            for (int mode : PROBE_ACTIVITY_MODES) {
                String[] names = Callback.getProbes(mode);
                for (int i = 0; names != null && i < names.length; i++) {
                    Packet.writeString(out, names[i]);
                    out.writeInt(mode);
                }
            }
            Packet.writeString(out, null);
        }));
        on(Protocol.PACKET_SET_PROBES, r -> {
            // Lists, not arrays of the count: memory follows what really arrives.
            int count = r.readCount(MAX_PROBES_A_REQUEST);
            List<String> nameList = new ArrayList<String>();
            List<Integer> modeList = new ArrayList<Integer>();
            for (int i = 0; i < count; i++) {
                nameList.add(r.readString());
                modeList.add(r.readInt());
            }
            final String[] names = nameList.toArray(new String[0]);
            final int[] modes = new int[count];
            for (int i = 0; i < count; i++) {
                modes[i] = modeList.get(i);
            }
            r.locked(PROBES, out -> {
                String error = Callback.setProbeActivityModes(names, modes);
                Callback.message(error == null ? "Probe activity mode changed"
                        : "Probe activity mode change - failed", describeProbeModes(names, modes));
                Request.writeOkOrError(out, error);
            });
        });
        simple(Protocol.PACKET_RETRANSFORM_CLASSES_LOADED_BEFORE_AGENT_ATTACHED, PROBES,
                Callback::retransformClassesLoadedBeforeAgentAttached);
        on(Protocol.PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE, r -> {
            int count = r.readCount(MAX_PROBES_A_REQUEST);
            List<byte[]> classList = new ArrayList<byte[]>();
            for (int i = 0; i < count; i++) {
                classList.add(r.readBytes());
            }
            final byte[][] classes = classList.toArray(new byte[0][]);
            r.locked(PROBES, out -> Request.writeOkOrError(out,
                    Callback.registerProbesByBytecode(classes, false, true)));
        });
        on(Protocol.PACKET_GET_TRIGGERS, r -> r.locked("Triggers", out -> {
            Packet.writeHeader(out, Protocol.PACKET_OK_RESP);
            Packet.writeString(out, Triggers.serialize());
        }));
        on(Protocol.PACKET_SET_TRIGGERS, r -> {
            final String text = r.readString();
            final boolean append = r.readBoolean();
            r.locked("Triggers", out -> Request.writeOkOrError(out, Core.setTriggers(text, append, false)));
        });

        on(Protocol.PACKET_DISPATCH, r -> {
            final String command = r.readString();
            r.locked("Dispatch", out -> Dispatch.answer(out, command));
        });
    }

    private static long usedMemory() {
        Runtime runtime = Runtime.getRuntime();
        return runtime.totalMemory() - runtime.freeMemory();
    }

    private static String describeProbeModes(String[] names, int[] modes) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < names.length; i++) {
            String name = names[i] == null ? "" : names[i];
            if (name.startsWith(BUILTIN_PROBE_PACKAGE)) {
                name = name.substring(BUILTIN_PROBE_PACKAGE.length());
            }
            int mode = modes[i];
            text.append(i > 0 ? ", " : "").append(name).append(" -> ")
                    .append(mode >= 0 && mode < PROBE_ACTIVITY_MODE_NAMES.length ? PROBE_ACTIVITY_MODE_NAMES[mode]
                            : String.valueOf(mode));
        }
        return text.toString();
    }

    /** The commands of PACKET_DISPATCH, each answered with a string after the standard header. */
    private static final class Dispatch {
        static void answer(DataOutputStream out, String command) throws IOException {
            String answer;
            if ("d_clear_charts".equals(command)) {
                Callback.clearCharts();
                TelemetryThread.wakeUp();
                answer = "";
            } else if ("d_getVmInfo".equals(command)) {
                answer = vmInfo();
            } else if ("d_get_platform".equals(command)) {
                answer = Callback.getPlatform();
            } else if ("d_get_total_created_object_count".equals(command)) {
                answer = String.valueOf(Callback.getTotalCreatedObjectCount());
            } else if ("d_get_total_created_object_size".equals(command)) {
                answer = String.valueOf(Callback.getTotalCreatedObjectSize());
            } else {
                Request.writeError(out, Protocol.compose_PACKET_DISPATCH_error(command));
                return;
            }
            Request.writeOk(out);
            Packet.writeString(out, answer);
        }

        private static String vmInfo() {
            StringBuilder commandLine = new StringBuilder();
            for (String argument : Callback.getCommandLine()) {
                commandLine.append(commandLine.length() > 0 ? " " : "").append(argument);
            }
            return "{\"cpuCount\": " + Runtime.getRuntime().availableProcessors()
                    + ", \"user\": \"" + com.corvane.util.Strings.escapeJson(Callback.getProcessOwner())
                    + "\", \"commandLine\": \"" + com.corvane.util.Strings.escapeJson(commandLine.toString())
                    + "\", \"cpuTimeNs\": " + Callback.getProcessCpuTimeNs(false)
                    + ", \"timeNs\": " + Callback.getTimeNsForTracing() + "}";
        }
    }
}
