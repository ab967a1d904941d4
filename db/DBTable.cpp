#include "db/DBTable.h"

ZString formatBytes(long n) {
    ZString text;
    text.appendLong(n / 1048576).append(" MB (=").appendLong(n).append(" bytes)");
    return text;
}

ZString TableStreamer::formatStatisticsLine(const ZString& name, int liveRows, int capacity, long bytes) {
    ZString line(name);
    while (line.getLength() < 20) line.appendChar(' ');
    line.append(" records=").append(ZString::formatLong(liveRows, 8, " "));
    // The second figure has always been 0; readers of the line expect it.
    line.append("/").append(ZString::formatLong(0, 8, " "));
    line.append(" - ").append(ZString::formatLong(capacity, 8, " "));
    line.append(" allocated=").append(formatBytes(bytes));
    return line;
}
