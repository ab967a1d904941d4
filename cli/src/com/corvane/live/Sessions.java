package com.corvane.live;

import com.corvane.Natives;
import com.corvane.runtime.SharedConstants;
import java.util.ArrayList;
import java.util.List;

/** The profiled JVMs of this machine, as their session markers tell. */
public final class Sessions {
    /** The marker table's size: no machine has more agents than slots. */
    private static final int MAX_SESSIONS = 17929;

    public record Session(int pid, String name, int port) {
    }

    private Sessions() {
    }

    /** Every live agent of the machine, by pid. */
    public static List<Session> list() {
        Natives.load();
        int[] pids = new int[MAX_SESSIONS];
        int[] ports = new int[MAX_SESSIONS];
        int count = Math.min(MAX_SESSIONS, Natives.fillMarked(SharedConstants.MARKER_MASK_AGENT, pids, ports));
        List<Session> sessions = new ArrayList<>();
        for (int i = 0; i < count; i++) {
            sessions.add(new Session(pids[i], Natives.getSessionNameFromMarker(pids[i]), ports[i]));
        }
        sessions.sort((a, b) -> Integer.compare(a.pid(), b.pid()));
        return sessions;
    }

    /** The session of a pid or a session name; the message says what is wrong when there is none or several. */
    public static Session find(String target) throws NoSuchSessionException {
        List<Session> sessions = list();
        Integer pid = parsePid(target);
        if (pid != null) {
            for (Session session : sessions) {
                if (session.pid() == pid) {
                    return session;
                }
            }
            throw new NoSuchSessionException(Natives.isLivePid(pid)
                    ? "process " + pid + " runs no profiler agent (see 'corvane list')"
                    : "no such process: " + pid);
        }
        List<Session> named = new ArrayList<>();
        for (Session session : sessions) {
            if (session.name().equals(target)) {
                named.add(session);
            }
        }
        if (named.isEmpty()) {
            throw new NoSuchSessionException("no such session: " + target + " (see 'corvane list')");
        }
        if (named.size() > 1) {
            StringBuilder pids = new StringBuilder();
            for (Session session : named) {
                pids.append(pids.length() > 0 ? ", " : "").append(session.pid());
            }
            throw new NoSuchSessionException("several sessions are named " + target + " (pids " + pids
                    + "): give the pid");
        }
        return named.get(0);
    }

    private static Integer parsePid(String text) {
        if (text.isEmpty() || !text.chars().allMatch(Character::isDigit)) {
            return null;
        }
        try {
            return Integer.parseInt(text);
        } catch (NumberFormatException e) {
            return null;
        }
    }

    /** A target that names no running agent. */
    public static final class NoSuchSessionException extends Exception {
        private static final long serialVersionUID = 1L;

        NoSuchSessionException(String message) {
            super(message);
        }
    }
}
