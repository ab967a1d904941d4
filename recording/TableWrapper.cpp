#include "recording/TableWrapper.h"

#include "db/DB.h"
#include "db/EventTableRows.h"
#include "services/Logger.h"

int TableWrapper::getId() {
    int id = myId.load();
    if (id != 0) return id;
    LockHolder lock(&ourLock, LOCK_SITE);
    if (myId.load() != 0) return myId.load();
    DB* db = KZT_DB();
    ZString description(myDescription);
    EventTable* known = EventTableRows::findTableByDescription(lock, db, description);
    id = known != nullptr ? known->getId() : EventTableRows::createTableByDescription(lock, db, description);
    if (id < 0) id = -1;
    if (known == nullptr) {
        Logger::message(ZString("table created in native code: \"") + description.replaceAll("\n", "\\n") + "\" -> " +
                        ZString::fromLong(id));
    }
    if (id < 0 && myFailureWarning != nullptr) Logger::message(myFailureWarning);
    myId.store(id);
    return id;
}
