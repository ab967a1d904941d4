// ZStringSet: strings bucketed by their 31-hash. The set owns the buckets.
#pragma once

#include "foundation/ZMap.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class ZStringSet {
public:
    ZStringSet() : buckets(10), count(0) {}
    virtual ~ZStringSet();
    ZStringSet(const ZStringSet&) = delete;
    ZStringSet& operator=(const ZStringSet&) = delete;

    // Tells whether the string was new.
    bool add(const ZString& s);
    bool contains(const ZString& s) const;
    int getSize() const { return count; }

private:
    ZMap<int, ZVectorSafe<ZString>*> buckets;
    int count;
};
