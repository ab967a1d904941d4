#!/bin/bash
# Round trip of every class of the JDK runtime image.
# Usage: run_corpus_check.sh <build-dir> <java-home>
set -euo pipefail
build=$1
java_home=$2
"$(dirname "$0")/extract_jdk_corpus.sh" "$build" "$java_home"
exec "$build/tests/classfile/classfile_corpus_check" "$build/jdk-corpus"
