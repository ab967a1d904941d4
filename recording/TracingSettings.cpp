#include "recording/TracingSettings.h"

#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/SignatureUtil.h"
#include "db/ZMethod.h"
#include "db/StringPool.h"
#include "foundation/System.h"

const char* const TracingSettings::DEFAULT_TEXT =
    "walltime=*\n"
    "adaptive=true\n"
    "adaptive_min_method_invocation_count=20000\n"
    "adaptive_max_average_method_time_ns=1000\n"
    "adaptive_min_method_time_percent=0.1\n";

TracingSettings ourTracingSettings;
bool Filter::ourAlwaysWallTime = false;
static ZVector<Filter*>& ourWallTimeFilters = *new ZVector<Filter*>();


void TracingSettings::setDefaults() {
    myAdaptive = true;
    myAdaptiveMinMethodInvocationCount = 20000;
    myAdaptiveMaxAverageMethodTimeNs = 1000;
    myAdaptiveMinMethodTimePercent = 0.1;
}

void TracingSettings::addFromText(const ZString& text) {
    parseSettingsLines(text, myWallTimeSpecs, [&](const ZString& line) {
        ZString rest;
        if (ZString::isPrefix(line, "adaptive=", &rest)) {
            if (rest.equals("true")) myAdaptive = true;
            if (rest.equals("false")) myAdaptive = false;
        } else if (ZString::isPrefix(line, "adaptive_min_method_invocation_count=", &rest)) {
            bool failed = false;
            int value = rest.parseInt(&failed);
            if (!failed) myAdaptiveMinMethodInvocationCount = value;
        } else if (ZString::isPrefix(line, "adaptive_max_average_method_time_ns=", &rest)) {
            bool failed = false;
            int value = rest.parseInt(&failed);
            if (!failed) myAdaptiveMaxAverageMethodTimeNs = value;
        } else {
            double value;
            if (ZString::isPrefixDouble(line, "adaptive_min_method_time_percent=", &value))
                myAdaptiveMinMethodTimePercent = value;
        }
    });
}

void TracingSettings::setFromText(const ZString& text) {
    setDefaults();
    addFromText(ZString(DEFAULT_TEXT));
    // The defaults give the numbers, the text alone the wall-time lines.
    myWallTimeSpecs.clear();
    addFromText(text);
    ZString message("TracingSettings: a=");
    message.appendLong(myAdaptive ? 1 : 0)
        .append(" min_cnt=")
        .appendLong(myAdaptiveMinMethodInvocationCount)
        .append(" max_avg=")
        .appendLong(myAdaptiveMaxAverageMethodTimeNs)
        .append(" min_%=")
        .append(doubleToString(myAdaptiveMinMethodTimePercent, 3));
    logSettingsMessage(message, text, DEFAULT_TEXT);
}

void logSettingsMessage(ZString& message, const ZString& text, const char* defaultText) {
    if (text.isEmpty() || text.equals(defaultText)) {
        message.append(" (default)");
    } else {
        message.appendChar('\n').append(text);
    }
    Logger::message(message);
}

ZString getTracingSettingsText(const ZString* text) {
    if (text != nullptr) return *text;
    return readConfigFromFile(ourOptions.getTracingSettingsPath(), "tracing.txt", TracingSettings::DEFAULT_TEXT);
}

Filter* Filter::createFilter(const ZString& pattern, int type) {
    ZString full = pattern.indexOfChar(':') < 0 ? pattern + ":*(*)" : pattern;
    ZString classPattern, methodPattern, parametersPattern, returnType, classAnnotation, methodAnnotation;
    ZString error = SignatureUtil::parseMethodPattern(full, classPattern, methodPattern, parametersPattern, returnType,
                                                      classAnnotation, methodAnnotation);
    if (!error.isEmpty()) {
        Logger::message(ZString("warning: invalid filter specification '") + pattern + "': " + error);
        return nullptr;
    }
    if (ourOptions.isDebug("filters")) {
        Logger::message(ZString("filter: type=") + ZString::fromLong(type) + " " + classPattern + " " + methodPattern +
                        " " + parametersPattern);
    }
    return new Filter(type, classPattern.c_str(), methodPattern.c_str(), parametersPattern.c_str());
}

void Filter::createInclusiveAndExclusiveFiltersFromSpec(const ZVectorSafe<ZString>* lines, ZVector<Filter*>* result) {
    for (const ZString& line : *lines) {
        ZString pattern = line;
        int type = EXCLUSIVE;
        if (pattern.startsWith("+")) {
            pattern = pattern.substring(1);
            type = INCLUSIVE;
        }
        if (pattern.trim().isEmpty()) continue;
        Filter* filter = createFilter(pattern, type);
        if (filter != nullptr) result->push(filter);
    }
}

bool Filter::acceptClass(const ZString& className) const {
    return wildcardMatchZS(myClassPattern, className);
}

bool Filter::accept(const ZString& className, const ZString& name, const ZString& parameters) const {
    return acceptClass(className) && wildcardMatchZS(myMethodPattern, name) &&
           wildcardMatchZS(myParametersPattern, parameters);
}

void Filter::reloadFilters(const LockHolder& lock, const ZVectorSafe<ZString>& patterns) {
    for (Filter* filter : ourWallTimeFilters) delete filter;
    ourWallTimeFilters.clear();
    bool star = false;
    bool other = false;
    for (const ZString& pattern : patterns) {
        Filter* filter = createFilter(pattern, WALL_TIME);
        if (filter == nullptr) continue;
        ourWallTimeFilters.push(filter);
        if (pattern.equals("*")) star = true;
        else other = true;
    }
    ourAlwaysWallTime = star && !other;
    if (ourMethodTable == nullptr) return;
    ourMethodTable->forEachRecord([&](long long index, MethodRecord& record) { applyFilters(lock, (int)index, &record); });
}

static ZString textOf(const LockHolder& lock, int strId) {
    const char* text = StringPool::getString(lock, strId);
    return ZString(text != nullptr ? text : "");
}

void Filter::applyFilters(const LockHolder& lock, int method, MethodRecord* record) {
    bool wall = ourAlwaysWallTime;
    if (!wall && !ourWallTimeFilters.isEmpty()) {
        ZString className = textOf(lock, record->myClass);
        ZString name = textOf(lock, record->myName);
        ZString parameters = textOf(lock, record->myParameters);
        for (Filter* filter : ourWallTimeFilters) {
            KZT_ASSERT(filter->getType() == WALL_TIME);
            if (filter->accept(className, name, parameters)) {
                wall = true;
                break;
            }
        }
    }
    int flags = record->myFlags;
    if (wall) flags |= METHOD_FLAG_WALL_TIME;
    else flags &= ~METHOD_FLAG_WALL_TIME;
    // A reload takes back every adaptive exclusion.
    flags &= ~(METHOD_FLAG_EXCLUDED | METHOD_FLAG_EXCLUDED_CALLEE | METHOD_FLAG_ALL_WALL_TIME);
    if (ourAlwaysWallTime) flags |= METHOD_FLAG_ALL_WALL_TIME;
    if (flags == record->myFlags) return;
    record->myFlags = flags;
    record->myStamp = ourDB->getCurrentGeneration();
}

bool Filter::isWallTimed(int method) {
    return ourAlwaysWallTime || (ZMethod::getFlags(method) & METHOD_FLAG_WALL_TIME) != 0;
}
