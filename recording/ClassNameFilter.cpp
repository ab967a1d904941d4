#include "recording/ClassNameFilter.h"

#include "foundation/System.h"

ClassNameFilter::ClassNameFilter(const ZString& text) {
    ZVectorSafe<ZString> lines;
    splitConfigFile(&lines, text);
    Filter::createInclusiveAndExclusiveFiltersFromSpec(&lines, &myFilters);
}

ClassNameFilter::~ClassNameFilter() {
    for (Filter* filter : myFilters) delete filter;
}

template <typename Matches>
bool ClassNameFilter::isFiltered(Matches matches) const {
    bool filtered = false;
    for (const Filter* filter : myFilters) {
        if (!matches(filter)) continue;
        if (filter->getType() == Filter::INCLUSIVE) return false;
        filtered = true;
    }
    return filtered;
}

bool ClassNameFilter::isFilteredClassName(const ZString& className) const {
    return isFiltered([&](const Filter* filter) { return filter->acceptClass(className); });
}

bool ClassNameFilter::isFilteredMethod(const ZString& className, const ZString& name, const ZString& parameters) const {
    return isFiltered([&](const Filter* filter) { return filter->accept(className, name, parameters); });
}
