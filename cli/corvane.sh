#!/bin/sh
# Starts the corvane command-line tool from its installed tree.
here=$(cd "$(dirname "$0")/.." && pwd)
if [ -n "$JAVA_HOME" ]; then java="$JAVA_HOME/bin/java"; else java=java; fi
exec "$java" -jar "$here/lib/corvane.jar" "$@"
