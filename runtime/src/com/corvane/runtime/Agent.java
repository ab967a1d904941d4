package com.corvane.runtime;

import com.corvane.util.FileUtil;
import java.io.File;
import java.io.IOException;
import java.text.SimpleDateFormat;
import java.util.Date;

/** What the native agent tells of itself, and the naming of snapshot files. */
public final class Agent {
    private Agent() {
    }

    /** Null when the text is empty or a dotted Java type name, else why not. */
    static String validateJavaTypeOrEmpty(String type) {
        if (type == null || type.length() == 0) {
            return null;
        }
        for (String part : type.split("\\.", -1)) {
            if (part.length() == 0 || !Character.isJavaIdentifierStart(part.charAt(0))) {
                return "invalid Java type name";
            }
            for (int i = 1; i < part.length(); i++) {
                if (!Character.isJavaIdentifierPart(part.charAt(i))) {
                    return "invalid Java type name";
                }
            }
        }
        return null;
    }

    public static boolean isAttached() {
        return (Callback.getCapabilities() & SharedConstants.CAPABILITY_ATTACHED_AGENT) != 0;
    }

    /** The format, or "{sessionname}-{date}" when it is empty, with its macros replaced. */
    static String expandSnapshotNameMacros(String format, String sessionName) {
        String text = format == null || format.isEmpty() ? "{sessionname}-{date}" : format;
        Date now = new Date();
        text = text.replace("{sessionname}", sessionName == null ? "" : sessionName);
        text = text.replace("{date}", new SimpleDateFormat("yyyy-MM-dd").format(now));
        text = text.replace("{datetime}", new SimpleDateFormat("yyyy-MM-dd-HH-mm").format(now));
        text = text.replace("{pid}", String.valueOf(Callback.getPid()));
        return FileUtil.toFileNamePart(text);
    }

    /**
     * Creates a new snapshot file in {@code folder}, atomically. A taken name gets "-" and the highest number
     * found in the folder plus one; "X.mirror.hprof" counts as the name X.
     */
    static File createSnapshotFile(File folder, String format, String sessionName, String extension)
            throws IOException {
        if (folder == null || !folder.isDirectory()) {
            throw new IOException("Bad directory: " + folder);
        }
        if (!folder.canWrite()) {
            throw new IOException("No write access to the directory: " + folder);
        }
        String base = expandSnapshotNameMacros(format, sessionName);
        File file = new File(folder, base + extension);
        try {
            while (!file.createNewFile()) {
                file = new File(folder, base + "-" + (highestNumber(folder, base) + 1) + extension);
            }
        } catch (IOException e) {
            throw new IOException("Snapshot file could not be created: " + file + ": " + e.getMessage());
        }
        return file;
    }

    // The highest n of the files "base-n.ext" of the folder; 0 when there is none.
    private static int highestNumber(File folder, String base) {
        int highest = 0;
        String[] names = folder.list();
        if (names == null) {
            return 0;
        }
        for (String name : names) {
            String stem = name.endsWith(".mirror.hprof") ? name.substring(0, name.length() - ".mirror.hprof".length())
                    : name.lastIndexOf('.') > 0 ? name.substring(0, name.lastIndexOf('.')) : name;
            if (stem.startsWith(base + "-")) {
                try {
                    highest = Math.max(highest, Integer.parseInt(stem.substring(base.length() + 1)));
                } catch (NumberFormatException e) {
                    // another name that happens to share the beginning
                }
            }
        }
        return highest;
    }
}
