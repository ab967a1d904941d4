#!/bin/sh
# Starts the corvane command-line tool from its installed tree.
here=$(cd "$(dirname "$0")/.." && pwd)
if [ -n "$JAVA_HOME" ] && [ -x "$JAVA_HOME/bin/java" ]; then
    java="$JAVA_HOME/bin/java"
elif [ -x /usr/lib/jvm/java-17-openjdk-amd64/bin/java ]; then
    java=/usr/lib/jvm/java-17-openjdk-amd64/bin/java
else
    java=java
fi
# Progress lines only when a person watches stderr.
if [ -t 2 ]; then progress=1; else progress=0; fi
exec "$java" -Xshare:auto -XX:TieredStopAtLevel=1 -XX:+UseSerialGC -Dcorvane.progress=$progress \
    -jar "$here/lib/corvane.jar" "$@"
