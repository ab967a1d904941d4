#!/bin/bash
# Round trip of every class of the JDK runtime image.
# Usage: run_corpus_check.sh <build-dir> <java-home>
set -euo pipefail
build=$1
java_home=$2
"$(dirname "$0")/extract_jdk_corpus.sh" "$build" "$java_home"
# The only classes of the image that hold constants the toolkit leaves alone
# are its module descriptors: one a module, 70 in JDK 17.
modules=$(find "$build/jdk-corpus" -name module-info.class | wc -l)
exec "$build/tests/classfile/classfile_corpus_check" "$build/jdk-corpus" "$modules"
