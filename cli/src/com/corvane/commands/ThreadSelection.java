package com.corvane.commands;

import com.corvane.profile.Profile;
import com.corvane.profile.ThreadProfile;
import java.util.ArrayList;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Set;
import java.util.regex.Pattern;
import picocli.CommandLine.Option;

/** Which threads a report covers: the application's own, and/or those of given names (with wildcards). */
final class ThreadSelection {
    /** Thread groups in which the JVM runs its own threads. */
    private static final Set<String> JVM_GROUPS = Set.of("system", "InnocuousThreadGroup");

    private final boolean myAppOnly;
    private final List<String> myNames;
    private final List<Pattern> myPatterns = new ArrayList<>();

    ThreadSelection(boolean appOnly, List<String> names) {
        myAppOnly = appOnly;
        myNames = names == null ? List.of() : names;
        for (String name : myNames) {
            myPatterns.add(wildcard(name));
        }
    }

    /** The command-line options that make a selection. */
    static final class Options {
        @Option(names = "--thread", paramLabel = "<name>",
                description = "Only threads of this name; * and ? are wildcards. Repeat it for more threads.")
        List<String> myNames;

        @Option(names = "--app-threads", description = "Only the application's threads: leaves out the JVM's own"
                + " (thread groups \"system\" and \"InnocuousThreadGroup\").")
        boolean myAppOnly;

        Profile apply(Profile profile) {
            return ThreadSelection.apply(profile, myAppOnly, myNames);
        }
    }

    /** The profile of the selected threads; the whole profile when nothing is selected. */
    static Profile apply(Profile profile, boolean appOnly, List<String> names) {
        if (!appOnly && (names == null || names.isEmpty())) {
            return profile;
        }
        ThreadSelection selection = new ThreadSelection(appOnly, names);
        Profile selected = profile.select(selection::accepts);
        if (selected.threads().isEmpty() && !profile.threads().isEmpty()) {
            Set<String> present = new LinkedHashSet<>();
            profile.threads().forEach(thread -> present.add(thread.name()));
            throw new UserException("no thread with recorded time matches " + selection + "; the threads are: "
                    + String.join(", ", present));
        }
        return selected;
    }

    boolean accepts(ThreadProfile thread) {
        if (myAppOnly && thread.group() != null && JVM_GROUPS.contains(thread.group())) {
            return false;
        }
        if (myPatterns.isEmpty()) {
            return true;
        }
        for (Pattern pattern : myPatterns) {
            if (pattern.matcher(thread.name()).matches()) {
                return true;
            }
        }
        return false;
    }

    static Pattern wildcard(String text) {
        StringBuilder regex = new StringBuilder();
        for (char c : text.toCharArray()) {
            if (c == '*') {
                regex.append(".*");
            } else if (c == '?') {
                regex.append('.');
            } else {
                regex.append(Pattern.quote(String.valueOf(c)));
            }
        }
        return Pattern.compile(regex.toString(), Pattern.DOTALL);
    }

    @Override
    public String toString() {
        String names = myNames.isEmpty() ? "" : "--thread " + String.join(", ", myNames);
        return myAppOnly ? (names.isEmpty() ? "--app-threads" : "--app-threads and " + names) : names;
    }
}
