// A list of include ("+" ahead) and exclude lines, e.g. a filter file of the
// instrumentation. An include that matches wins over any exclude, whatever
// the order of the lines.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"
#include "recording/TracingSettings.h"

class ClassNameFilter {
public:
    explicit ClassNameFilter(const ZString& text);
    ~ClassNameFilter();
    ClassNameFilter(const ClassNameFilter&) = delete;
    ClassNameFilter& operator=(const ClassNameFilter&) = delete;

    // True when some exclude line matches the class and no include line does.
    bool isFilteredClassName(const ZString& className) const;
    // The same, with all three patterns of each line.
    bool isFilteredMethod(const ZString& className, const ZString& name, const ZString& parameters) const;

private:
    template <typename Matches>
    bool isFiltered(Matches matches) const;

    ZVector<Filter*> myFilters;
};
